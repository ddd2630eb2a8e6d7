#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/restic_commands.h"
#include "support/clock.h"
#include "support/environment.h"
#include "support/logger.h"

namespace kestrow {

// Runs restic on the Qt event loop of the calling thread (see ResticRun for how the password and
// the repository reach it). A restic that could not be started is remembered: until it is due to
// be tried again, or its program file changes, a run answers `failedToStart` at once with the
// reason it had, and no process is made.
class ResticProcess final : public ResticCommands {
public:
    // `program`: a path, or a name looked up on PATH. `log`, when given, hears once that restic
    // is missing, and once that it runs again.
    ResticProcess(std::string program, const Clock& clock,
                  std::optional<Logger> log = std::nullopt);
    ~ResticProcess() override;

    // The restic to run: KESTROW_RESTIC when set, else "restic" on PATH.
    static std::string programFrom(const EnvironmentLookup& environment);

    std::unique_ptr<Run> run(ResticInvocation invocation,
                             std::function<void(std::string_view line)> line,
                             std::function<void(ResticEnding)> done) override;

private:
    struct Memory;
    std::string program_;
    const Clock& clock_;
    // Shared with the runs under way, which may end after this object is gone.
    std::shared_ptr<Memory> memory_;
};

}  // namespace kestrow
