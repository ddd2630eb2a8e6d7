#include "cli/backup_now_command.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QProcess>
#include <QTimer>

#include <nlohmann/json.hpp>

#include "backup/backup_failure_kind.h"
#include "backup/restic_failure.h"
#include "cli/command_application.h"
#include "cli/one_shot_backup_stack.h"
#include "support/iso_date.h"

namespace kestrow {

const char* const kBackupNowUsage = "usage: kestrow backup-now [--json] [--wait]\n";

namespace {

using Json = nlohmann::ordered_json;

// Time Machine and Déjà Dup run their backups themselves; their end shows as the live status
// turning to "not running". Polled this often.
constexpr int kFollowEveryMs = 2000;
// Without --wait, how long to wait for a detached run to record that it began.
constexpr int kBeginLimitMs = 20'000;

struct Ending {
    bool succeeded = false;
    std::string line;  // what the user reads
    std::optional<BackupAttempt> attempt;
};

std::string failureLine(const BackupAttempt& attempt) {
    return ResticFailure::sentence(*attempt.failure)
        .value_or("restic didn't say why (code " + std::to_string(attempt.exitStatus.value_or(1)) +
                  ")");
}

void print(const CommandContext& context, bool json, bool started,
           const std::optional<std::string>& error, const std::optional<Ending>& ending,
           const std::optional<BackupSourceName>& source) {
    if (json) {
        Json document{
            {"source", source ? Json{{"kind", std::string(backupSourceKindName(source->kind))},
                                     {"name", source->name}}
                              : Json(nullptr)},
            {"started", started},
            {"error", error ? Json(*error) : Json(nullptr)}};
        if (ending) {
            document["succeeded"] = ending->succeeded;
            document["line"] = ending->line;
        }
        context.out << document.dump(2) << "\n";
        return;
    }
    if (error) return;  // on standard error already
    context.out << (ending ? ending->line : std::string("Backing up")) << "\n";
}

}  // namespace

int runBackupNowCommand(const CommandContext& context, const std::string& executable) {
    bool json = false;
    bool wait = false;
    for (const auto& arg : context.arguments) {
        if (arg == "--json") {
            json = true;
        } else if (arg == "--wait") {
            wait = true;
        } else {
            context.err << "kestrow backup-now: unknown option '" << arg << "'\n"
                        << kBackupNowUsage;
            return kExitUsage;
        }
    }
    const auto app = commandApplication();
    OneShotBackupStack oneShot(context, false);
    BackupStack& stack = oneShot.stack();
    const auto setup = stack.startSources();
    const auto source = stack.source().activeName();
    if (!source) {
        context.err
            << "kestrow backup-now: no backup is set up (add one with kestrow backups add)\n";
        if (json) print(context, true, false, "no backup is set up", std::nullopt, source);
        return kExitFailed;
    }

    // restic runs inside this process, so without --wait a detached `backup-now --wait` runs it
    // and this one returns as soon as the ledger shows the attempt begun.
    if (source->kind == BackupSourceKind::restic && !wait) {
        const WallTime asked = std::chrono::system_clock::now();
        std::error_code ec;
        const auto self = std::filesystem::read_symlink("/proc/self/exe", ec);
        const std::string program = ec ? executable : self.string();
        QProcess detached;
        detached.setProgram(QString::fromStdString(program));
        detached.setArguments({QStringLiteral("backup-now"), QStringLiteral("--wait")});
        // It outlives this command; what it would print belongs to nobody.
        detached.setStandardOutputFile(QProcess::nullDevice());
        detached.setStandardErrorFile(QProcess::nullDevice());
        if (!detached.startDetached()) {
            context.err << "kestrow backup-now: could not start the backup\n";
            return kExitFailed;
        }
        QEventLoop loop;
        QTimer poll;
        bool begun = false;
        int waited = 0;
        QObject::connect(&poll, &QTimer::timeout, [&] {
            waited += 100;
            stack.restic().reloadJobs();
            for (const ResticJob& job : stack.restic().jobs())
                for (const BackupAttempt& attempt : stack.restic().attemptsOf(job.id))
                    begun = begun || attempt.start >= asked - std::chrono::seconds(1);
            if (begun || waited > kBeginLimitMs) loop.quit();
        });
        poll.start(100);
        loop.exec();
        const std::optional<std::string> error =
            begun ? std::nullopt : std::optional<std::string>("the backup did not begin");
        if (error) context.err << "kestrow backup-now: " << *error << "\n";
        print(context, json, begun, error, std::nullopt, source);
        return begun ? kExitDone : kExitFailed;
    }

    BackupStatusModel& model = stack.model();
    QEventLoop loop;
    std::optional<Ending> ending;
    bool sawRunning = false;
    auto attemptEnded = stack.restic().attemptEnded.connect([&](const BackupAttempt& attempt) {
        // The queue runs every job; the command follows until the last one ends.
        if (!attempt.failure && ending && !ending->succeeded) return;
        ending = Ending{!attempt.failure,
                        attempt.failure ? failureLine(attempt) : std::string("Backed up"), attempt};
        if (!stack.restic().busy()) loop.quit();
    });
    QTimer follow;
    if (wait && source->kind != BackupSourceKind::restic) {
        QObject::connect(&follow, &QTimer::timeout, [&] {
            model.refreshLiveStatus([&] {
                if (model.live.get().running) sawRunning = true;
                if (sawRunning && !model.live.get().running) {
                    ending = Ending{true, "The backup ended", std::nullopt};
                    loop.quit();
                }
            });
        });
        follow.start(kFollowEveryMs);
    }
    model.startBackup();
    auto started = model.starting.observe([&](bool starting) {
        if (starting) return;
        if (model.startError.get() || !wait) loop.quit();
    });
    loop.exec();
    const auto error = model.startError.get();
    if (error) context.err << "kestrow backup-now: " << *error << "\n";
    print(context, json, !error, error, ending, source);
    if (error) return kExitFailed;
    if (wait) return ending && ending->succeeded ? kExitDone : kExitFailed;
    return kExitDone;
}

}  // namespace kestrow
