#include "platform/linux/backup/restic_process.h"

#include <string.h>

#include <QPointer>

#include <fmt/format.h>

#include <mutex>
#include <utility>

#include "platform/linux/backup/restic_run.h"
#include "platform/linux/tool_launcher.h"
#include "support/missing_tool_memory.h"

namespace kestrow {

struct ResticProcess::Memory {
    std::mutex mutex;
    MissingToolMemory missing;
    OnceLog note;
    std::optional<Logger> log;
};

namespace {

class RunHandle final : public ResticCommands::Run {
public:
    explicit RunHandle(ResticRun* run) : run_(run) {}
    ~RunHandle() override {
        if (run_) run_->abandon();
    }
    RunHandle(const RunHandle&) = delete;
    RunHandle& operator=(const RunHandle&) = delete;

    void stop() override {
        if (run_) run_->stop();
    }

private:
    QPointer<ResticRun> run_;
};

}  // namespace

ResticProcess::ResticProcess(std::string program, const Clock& clock, std::optional<Logger> log)
    : program_(std::move(program)), clock_(clock), memory_(std::make_shared<Memory>()) {
    memory_->log = log;
}

ResticProcess::~ResticProcess() = default;

std::string ResticProcess::programFrom(const EnvironmentLookup& environment) {
    if (environment) {
        if (auto chosen = environment("KESTROW_RESTIC"); chosen && !chosen->empty()) return *chosen;
    }
    return "restic";
}

std::unique_ptr<ResticCommands::Run> ResticProcess::run(
    ResticInvocation invocation, std::function<void(std::string_view line)> line,
    std::function<void(ResticEnding)> done) {
    const std::string stamp = ToolLauncher::programStamp(program_);
    const double now = clock_.monotonic();
    {
        std::lock_guard lock(memory_->mutex);
        if (!memory_->missing.shouldStart(now, stamp)) {
            ::explicit_bzero(invocation.password.data(), invocation.password.size());
            return std::make_unique<RunHandle>(
                ResticRun::refuse(memory_->missing.reason(), std::move(done)));
        }
    }
    if (stamp.empty()) {
        // Not there at all: no process is made to find that out.
        std::string reason = fmt::format("{} is not installed", program_);
        {
            std::lock_guard lock(memory_->mutex);
            memory_->missing.failedToStart(now, stamp, reason);
            if (memory_->log)
                memory_->log->once(memory_->note, LogLevel::notice,
                                   fmt::format("{} could not be started ({})", program_, reason));
        }
        ::explicit_bzero(invocation.password.data(), invocation.password.size());
        return std::make_unique<RunHandle>(ResticRun::refuse(std::move(reason), std::move(done)));
    }
    auto remember = [memory = memory_, stamp, program = program_,
                     &clock = clock_](std::optional<std::string> failure) {
        std::lock_guard lock(memory->mutex);
        if (failure)
            memory->missing.failedToStart(clock.monotonic(), stamp, *failure);
        else
            memory->missing.started();
        // The first note is only about a missing restic: one that runs is not news.
        if (memory->log && (failure || memory->note.last())) {
            memory->log->once(memory->note, failure ? LogLevel::notice : LogLevel::info,
                              failure
                                  ? fmt::format("{} could not be started ({})", program, *failure)
                                  : fmt::format("{} starts again", program));
        }
    };
    return std::make_unique<RunHandle>(ResticRun::start(
        program_, std::move(invocation), std::move(line), std::move(done), std::move(remember)));
}

}  // namespace kestrow
