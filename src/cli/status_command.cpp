#include "cli/status_command.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>

#include <memory>

#include "cli/alert_sources.h"
#include "cli/backup_stack.h"
#include "cli/command_application.h"
#include "cli/one_shot_backup_stack.h"
#include "cli/status_report.h"

namespace kestrow {

const char* const kStatusUsage = "usage: kestrow status [--json] [--demo]\n";

namespace {

// A one-shot report waits this long at most for the tool, the probe and the reason lookup.
constexpr int kAnswerLimitMs = 15'000;
// A status bar asks often; a file server that has not answered in this time counts as away.
constexpr double kProbeLimitSeconds = 3.0;

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

    OneShotBackupStack oneShot(context, demo, kProbeLimitSeconds);
    BackupStack& stack = oneShot.stack();
    const auto setup = stack.startSources();
    if (!stack.settingsReadable()) {
        context.err << "kestrow status: cannot read the Time Machine settings at "
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

    const auto alerts =
        AlertSources::oneShot(model, oneShot.standardStore(), context.locations(), demo);
    if (json) {
        context.out << statusJson(model, alerts).dump(2) << "\n";
    } else {
        context.out << statusText(model, alerts);
    }
    return kExitDone;
}

}  // namespace kestrow
