#include "cli/backups_command.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QEventLoop>

#include <iostream>
#include <nlohmann/json.hpp>

#include "backup/backup_failure_kind.h"
#include "backup/restic_failure.h"
#include "backup/restic_repository.h"
#include "cli/backup_stack.h"
#include "cli/command_application.h"
#include "cli/one_shot_backup_stack.h"
#include "cli/password_input.h"
#include "support/iso_date.h"

namespace kestrow {

const char* const kBackupsUsage =
    "usage: kestrow backups [--json]\n"
    "       kestrow backups add --name NAME --repository REPO [--path DIR]... [--exclude "
    "PATTERN]...\n"
    "                           [--init] [--manual]   (the password is read from standard input)\n"
    "       kestrow backups remove ID|NAME\n";

namespace {

using Json = nlohmann::ordered_json;

Json attemptJson(const std::optional<BackupAttempt>& attempt) {
    if (!attempt) return nullptr;
    const auto orNull = [](const auto& value) -> Json {
        if (!value) return nullptr;
        return Json(*value);
    };
    return {
        {"start", formatIsoDate(attempt->start)},
        {"end", attempt->end ? Json(formatIsoDate(*attempt->end)) : Json(nullptr)},
        {"exitStatus", orNull(attempt->exitStatus)},
        {"failure", attempt->failure ? Json(std::string(backupFailureKindName(*attempt->failure)))
                                     : Json(nullptr)},
        {"error", orNull(attempt->error)},
        {"snapshot", orNull(attempt->snapshot)}};
}

std::optional<BackupAttempt> lastAttempt(const ResticSource& restic, const std::string& jobId) {
    const auto attempts = restic.attemptsOf(jobId);
    if (attempts.empty()) return std::nullopt;
    return attempts.back();
}

int listJobs(const CommandContext& context, bool json) {
    OneShotBackupStack stack(context, false);
    const auto setup = stack.stack().startSources();
    ResticSource& restic = stack.stack().restic();
    restic.reloadJobs();  // read even when another source is the active one
    const auto active = stack.stack().source().activeName();
    if (json) {
        Json jobs = Json::array();
        for (const ResticJob& job : restic.jobs()) {
            jobs.push_back({{"id", job.id},
                            {"name", job.name},
                            {"repository", ResticRepository::classify(job.repository).display},
                            {"paths", job.paths},
                            {"excludes", job.excludes},
                            {"automatic", job.automatic},
                            {"lastAttempt", attemptJson(lastAttempt(restic, job.id))}});
        }
        Json source = nullptr;
        if (active)
            source = {{"kind", std::string(backupSourceKindName(active->kind))},
                      {"name", active->name}};
        context.out << Json{{"source", source}, {"jobs", jobs}}.dump(2) << "\n";
        return kExitDone;
    }
    context.out << "Source: " << (active ? active->name : std::string("none set up")) << "\n";
    if (restic.jobs().empty()) context.out << "No restic backup jobs.\n";
    for (const ResticJob& job : restic.jobs()) {
        context.out << "\n"
                    << job.name << "  (" << job.id << ")\n"
                    << "  Repository: " << ResticRepository::classify(job.repository).display
                    << "\n  Folders:";
        for (const auto& path : job.paths) context.out << " " << path;
        context.out << "\n  Automatic: " << (job.automatic ? "every hour" : "off") << "\n";
        if (const auto attempt = lastAttempt(restic, job.id)) {
            context.out << "  Last attempt: " << formatIsoDate(attempt->start);
            if (!attempt->end)
                context.out << ", running";
            else if (!attempt->failure)
                context.out << ", backed up";
            else
                context.out << ", failed: "
                            << ResticFailure::sentence(*attempt->failure)
                                   .value_or("restic didn't say why (code " +
                                             std::to_string(attempt->exitStatus.value_or(1)) + ")");
            context.out << "\n";
        }
    }
    return kExitDone;
}

int addJob(const CommandContext& context) {
    ResticJobEditor::AddRequest request;
    const auto& args = context.arguments;
    for (std::size_t i = 1; i < args.size(); ++i) {
        const std::string& arg = args[i];
        const auto value = [&]() -> std::optional<std::string> {
            if (i + 1 >= args.size()) return std::nullopt;
            return args[++i];
        };
        std::optional<std::string> v;
        if (arg == "--init") {
            request.initialise = true;
        } else if (arg == "--manual") {
            request.job.automatic = false;
        } else if ((arg == "--name" || arg == "--repository" || arg == "--path" ||
                    arg == "--exclude") &&
                   (v = value())) {
            if (arg == "--name") request.job.name = *v;
            if (arg == "--repository") request.job.repository = *v;
            if (arg == "--path") request.job.paths.push_back(*v);
            if (arg == "--exclude") request.job.excludes.push_back(*v);
        } else {
            context.err << "kestrow backups add: unknown or incomplete option '" << arg << "'\n"
                        << kBackupsUsage;
            return kExitUsage;
        }
    }
    if (request.job.name.empty() || request.job.repository.empty()) {
        context.err << "kestrow backups add: --name and --repository are needed\n" << kBackupsUsage;
        return kExitUsage;
    }
    auto password = readSecretLine("Repository password: ");
    if (!password || password->empty()) {
        context.err << "kestrow backups add: no password was given on standard input\n";
        return kExitFailed;
    }
    request.password = std::move(*password);
    password->clear();
    OneShotBackupStack stack(context, false);
    std::optional<ResticJobEditor::AddOutcome> outcome;
    QEventLoop loop;
    stack.stack().jobEditor().add(std::move(request), [&](ResticJobEditor::AddOutcome result) {
        outcome = std::move(result);
        loop.quit();
    });
    if (!outcome) loop.exec();
    if (!outcome->id) {
        context.err << "kestrow backups add: " << outcome->error << "\n";
        return kExitFailed;
    }
    context.out << *outcome->id << "\n";
    return kExitDone;
}

int removeJob(const CommandContext& context) {
    if (context.arguments.size() != 2) {
        context.err << kBackupsUsage;
        return kExitUsage;
    }
    OneShotBackupStack stack(context, false);
    std::optional<std::string> error;
    QEventLoop loop;
    stack.stack().jobEditor().remove(context.arguments[1], [&](std::string result) {
        error = std::move(result);
        loop.quit();
    });
    if (!error) loop.exec();
    if (!error->empty()) {
        context.err << "kestrow backups remove: " << *error << "\n";
        return kExitFailed;
    }
    return kExitDone;
}

}  // namespace

int runBackupsCommand(const CommandContext& context) {
    const auto app = commandApplication();
    const auto& args = context.arguments;
    if (!args.empty() && args[0] == "add") return addJob(context);
    if (!args.empty() && args[0] == "remove") return removeJob(context);
    bool json = false;
    for (const auto& arg : args) {
        if (arg == "--json") {
            json = true;
        } else {
            context.err << "kestrow backups: unknown option '" << arg << "'\n" << kBackupsUsage;
            return kExitUsage;
        }
    }
    return listJobs(context, json);
}

}  // namespace kestrow
