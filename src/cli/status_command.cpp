#include "cli/status_command.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>

#include <memory>

#include "backup/source_wording.h"
#include "cli/alert_sources.h"
#include "cli/backup_stack.h"
#include "cli/command_application.h"
#include "cli/status_report.h"
#include "platform/linux/journal_log_sink.h"
#include "platform/linux/linux_widget_host.h"
#include "platform/linux/qt_main_executor.h"
#include "platform/linux/system_clock.h"

namespace kestrow {

const char* const kStatusUsage = "usage: kestrow status [--json] [--demo]\n";

namespace {

// A one-shot report waits this long at most for the tool, the probe and the reason lookup.
constexpr int kAnswerLimitMs = 15'000;
// A status bar asks often; a file server that has not answered in this time counts as away.
constexpr double kProbeLimitSeconds = 3.0;

// Log lines go to the journal; without one, only what is really wrong reaches the terminal, so
// that a script reading the report sees nothing else on it.
std::unique_ptr<LogSink> statusLogSink() {
    std::error_code ec;
    if (std::filesystem::exists("/run/systemd/journal/socket", ec)) return makeSystemLogSink();
    return std::make_unique<StderrLogSink>(LogLevel::fault);
}

bool settled(const BackupStatusModel& model, bool liveAnswered) {
    const bool reasonPending =
        model.failureReasonAttempt.get() && !model.failureReasonReadable.get();
    return liveAnswered && !model.probing() && !reasonPending;
}

}  // namespace

int runStatusCommand(const CommandContext& context) {
    bool json = false;
    bool demo = false;
    for (const auto& arg : context.arguments) {
        if (arg == "--json") {
            json = true;
        } else if (arg == "--demo") {
            demo = true;
        } else {
            context.err << "kestrow status: unknown option '" << arg << "'\n" << kStatusUsage;
            return kExitUsage;
        }
    }

    const auto app = commandApplication();

    const auto sink = statusLogSink();
    const Logger log(*sink, LogArea::general);
    const UserLocations locations = context.locations();
    const auto folder = demo ? locations.demoFolder() : locations.settingsFolder();
    SettingsStore standard(folder / locations.standardStoreFile().filename(), log);
    SettingsStore shared(folder / locations.sharedStoreFile().filename(), log);
    SystemClock clock;
    QtMainExecutor executor;
    LinuxWidgetHost widgets(QDBusConnection::sessionBus());
    BackupStack stack({demo, context.environment, kProbeLimitSeconds}, clock, executor, standard,
                      shared, widgets, nullptr, log);

    const auto settings = stack.makePreferencesFile();
    if (settings && !settings->hasAccess()) {
        const Wording wording = linuxWording(stack.model().source.get());
        context.err << "kestrow status: " << wording("cannot read the Time Machine settings at ")
                    << stack.settingsFile().string() << "\n";
        return kExitFailed;
    }

    BackupStatusModel& model = stack.model();
    bool liveAnswered = false;
    model.refreshLiveStatus([&] {
        model.refresh();
        liveAnswered = true;
    });
    QEventLoop loop;
    QTimer check;
    QElapsedTimer waited;
    waited.start();
    QObject::connect(&check, &QTimer::timeout, [&] {
        if (settled(model, liveAnswered) || waited.elapsed() > kAnswerLimitMs) loop.quit();
    });
    check.start(10);
    if (!settled(model, liveAnswered)) loop.exec();

    const auto alerts = AlertSources::oneShot(model, standard, locations, demo);
    if (json) {
        context.out << statusJson(model, alerts).dump(2) << "\n";
    } else {
        context.out << statusText(model, alerts);
    }
    return kExitDone;
}

}  // namespace kestrow
