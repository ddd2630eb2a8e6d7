#pragma once

#include <QObject>

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/tool_process.h"
#include "support/clock.h"
#include "support/logger.h"
#include "support/missing_tool_memory.h"

namespace kestrow {

// Starts one program through ToolProcess, remembering when it could not be started: until it is
// due to be tried again (MissingToolMemory), a run answers at once, later, on the calling
// thread, with `failedToStart` and the reason it had, and no process is made. Runs may come
// from several threads.
class ToolLauncher {
public:
    // `log`, when given, hears once that the tool is missing, and once that it runs again.
    ToolLauncher(std::string program, const Clock& clock, std::optional<Logger> log = std::nullopt);

    const std::string& program() const { return program_; }

    // As ToolProcess::run.
    void run(std::vector<std::string> arguments, double timeLimitSeconds,
             std::function<void(ToolResult)> done, QObject* context = nullptr);

    // What identifies the program file now: found on the PATH when the name has no slash;
    // empty when there is no such file.
    static std::string programStamp(const std::string& program);

private:
    std::string program_;
    const Clock& clock_;
    std::optional<Logger> log_;
    std::mutex mutex_;
    MissingToolMemory memory_;
    OnceLog note_;
};

}  // namespace kestrow
