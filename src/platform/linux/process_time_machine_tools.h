#pragma once

#include <QObject>

#include <string>

#include "platform/linux/tool_launcher.h"
#include "platform/time_machine_tools.h"
#include "support/environment.h"

namespace kestrow {

// Runs the Time Machine command-line tool as a child process. Answers come on the event loop of
// the thread that asked. Destroying this object stops whatever it still runs, and those calls
// report nothing.
class ProcessTimeMachineTools final : public TimeMachineTools {
public:
    // The status limit is short because status is polled while the menu is open and the tool
    // answers from the backup daemon's memory in well under a second; ten seconds still lets a
    // daemon that is busy mounting a network destination reply. Starting a backup may first have
    // to wake the daemon, and the user waits on a single answer rather than a stream of them, so
    // it gets longer before we call it unanswered.
    // A tool that cannot be started is remembered on `clock` and not started again for a while
    // (ToolLauncher), and `log` hears of it once: the status is polled every 2 s, and on Linux
    // the tool is usually absent.
    ProcessTimeMachineTools(std::string program, const Clock& clock, std::optional<Logger> log,
                            double statusTimeLimit = 10.0, double startTimeLimit = 30.0);
    ~ProcessTimeMachineTools() override;
    ProcessTimeMachineTools(const ProcessTimeMachineTools&) = delete;
    ProcessTimeMachineTools& operator=(const ProcessTimeMachineTools&) = delete;

    // KESTROW_TMUTIL when set and not empty, else /usr/bin/tmutil.
    static std::string program(const EnvironmentLookup& environment);

    void status(std::function<void(std::optional<std::string> output)> done) override;
    void startBackup(std::function<void(StartBackupOutcome)> done) override;

private:
    ToolLauncher launcher_;
    double statusTimeLimit_;
    double startTimeLimit_;
    QObject runs_;  // owns the runs still under way
};

}  // namespace kestrow
