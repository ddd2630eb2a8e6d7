#pragma once

#include <memory>

#include "cli/backup_stack.h"
#include "cli/command_context.h"
#include "platform/linux/linux_widget_host.h"
#include "platform/linux/qt_main_executor.h"
#include "platform/linux/system_clock.h"

namespace kestrow {

// The backup stack as a one-shot command builds it: the user's stores (or the demo's), the
// system clock, the Qt event loop as the main executor, and a log that keeps the terminal clean
// for the report. Needs a QCoreApplication.
class OneShotBackupStack {
public:
    OneShotBackupStack(const CommandContext& context, bool demo,
                       double probeTimeLimitSeconds = 5.0);
    ~OneShotBackupStack();

    BackupStack& stack() { return *stack_; }
    SettingsStore& standardStore() { return standard_; }
    const Logger& log() const { return log_; }

private:
    std::unique_ptr<LogSink> sink_;
    Logger log_;
    SettingsStore standard_;
    SettingsStore shared_;
    SystemClock clock_;
    QtMainExecutor executor_;
    LinuxWidgetHost widgets_;
    std::unique_ptr<BackupStack> stack_;
};

}  // namespace kestrow
