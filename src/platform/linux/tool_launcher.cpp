#include "platform/linux/tool_launcher.h"

#include <sys/stat.h>

#include <QStandardPaths>
#include <QTimer>

#include <fmt/format.h>

#include <optional>
#include <utility>

namespace kestrow {

ToolLauncher::ToolLauncher(std::string program, const Clock& clock, std::optional<Logger> log)
    : program_(std::move(program)), clock_(clock), log_(log) {}

std::string ToolLauncher::programStamp(const std::string& program) {
    if (program.empty()) return {};
    std::string path = program;
    if (program.find('/') == std::string::npos) {
        path = QStandardPaths::findExecutable(QString::fromStdString(program)).toStdString();
        if (path.empty()) return {};
    }
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) return {};
    return fmt::format("{} {}:{} {}.{} {:o} {}", path, info.st_dev, info.st_ino,
                       info.st_mtim.tv_sec, info.st_mtim.tv_nsec, info.st_mode, info.st_size);
}

void ToolLauncher::run(std::vector<std::string> arguments, double timeLimitSeconds,
                       std::function<void(ToolResult)> done, QObject* context) {
    const std::string stamp = programStamp(program_);
    std::optional<std::string> remembered;
    {
        std::lock_guard lock(mutex_);
        if (!memory_.shouldStart(clock_.monotonic(), stamp)) remembered = memory_.reason();
    }
    if (remembered) {
        auto answer = [done = std::move(done), reason = std::move(*remembered)]() mutable {
            if (done)
                done(ToolResult{ToolResult::Ending::failedToStart, -1, {}, std::move(reason)});
        };
        // Later, never inside run(), as a real start would answer.
        if (context != nullptr)
            QMetaObject::invokeMethod(context, std::move(answer), Qt::QueuedConnection);
        else
            QTimer::singleShot(0, std::move(answer));
        return;
    }
    ToolProcess::run(
        program_, std::move(arguments), timeLimitSeconds,
        [this, stamp, done = std::move(done)](ToolResult result) {
            {
                std::lock_guard lock(mutex_);
                const bool missing = result.ending == ToolResult::Ending::failedToStart;
                if (missing)
                    memory_.failedToStart(clock_.monotonic(), stamp, result.errorText);
                else
                    memory_.started();
                // The first note is only about a missing tool: one that runs is not news.
                if (log_ && (missing || note_.last())) {
                    log_->once(note_, missing ? LogLevel::notice : LogLevel::info,
                               missing ? fmt::format("{} could not be started ({}); trying it "
                                                     "again in {:g} minutes, or once it changes",
                                                     program_, result.errorText,
                                                     MissingToolMemory::kRecheckSeconds / 60)
                                       : fmt::format("{} starts again", program_));
                }
            }
            if (done) done(std::move(result));
        },
        context);
}

}  // namespace kestrow
