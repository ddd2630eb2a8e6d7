#include "platform/linux/process_time_machine_tools.h"

#include <fmt/format.h>

#include <utility>

namespace kestrow {
namespace {

std::string unansweredText(double seconds) {
    if (seconds == 1.0) return "it did not answer within 1 second";
    return fmt::format("it did not answer within {:g} seconds", seconds);
}

}  // namespace

ProcessTimeMachineTools::ProcessTimeMachineTools(std::string program, const Clock& clock,
                                                 std::optional<Logger> log, double statusTimeLimit,
                                                 double startTimeLimit)
    : launcher_(std::move(program), clock, log),
      statusTimeLimit_(statusTimeLimit),
      startTimeLimit_(startTimeLimit) {}

ProcessTimeMachineTools::~ProcessTimeMachineTools() = default;

std::string ProcessTimeMachineTools::program(const EnvironmentLookup& environment) {
    if (environment) {
        if (auto chosen = environment("KESTROW_TMUTIL"); chosen && !chosen->empty())
            return std::move(*chosen);
    }
    return "/usr/bin/tmutil";
}

void ProcessTimeMachineTools::status(std::function<void(std::optional<std::string>)> done) {
    launcher_.run(
        {"status", "-X"}, statusTimeLimit_,
        [done = std::move(done)](ToolResult result) {
            // Whatever the exit code, the output is the tool's answer for the parser to judge.
            if (result.ending == ToolResult::Ending::exited)
                done(std::move(result.standardOutput));
            else
                done(std::nullopt);
        },
        &runs_);
}

void ProcessTimeMachineTools::startBackup(std::function<void(StartBackupOutcome)> done) {
    launcher_.run(
        {"startbackup"}, startTimeLimit_,
        [done = std::move(done), limit = startTimeLimit_](ToolResult result) {
            switch (result.ending) {
                case ToolResult::Ending::exited:
                    if (result.exitCode == 0)
                        done({StartBackupOutcome::Accepted{}});
                    else
                        done({StartBackupOutcome::Refused{result.exitCode}});
                    return;
                case ToolResult::Ending::failedToStart:
                    if (result.errorText.empty()) result.errorText = "it could not be started";
                    done({StartBackupOutcome::LaunchFailed{std::move(result.errorText)}});
                    return;
                case ToolResult::Ending::timedOut:
                    done({StartBackupOutcome::LaunchFailed{unansweredText(limit)}});
                    return;
                case ToolResult::Ending::crashed:
                    done({StartBackupOutcome::LaunchFailed{"it stopped unexpectedly"}});
                    return;
                case ToolResult::Ending::tooMuchOutput:
                    done({StartBackupOutcome::LaunchFailed{"it wrote far more than an answer"}});
                    return;
            }
        },
        &runs_);
}

}  // namespace kestrow
