#include "cli/cleaners_command.h"

#include <QCoreApplication>
#include <QEventLoop>

#include <nlohmann/json.hpp>

#include <memory>

#include "app/settings/preference_accessors.h"
#include "cli/cleaner_stack.h"
#include "cli/command_application.h"
#include "menu/cleaner_rows.h"
#include "platform/linux/qt_main_executor.h"
#include "platform/linux/system_clock.h"
#include "support/iso_date.h"

namespace kestrow {
namespace {

using Json = nlohmann::ordered_json;

const char* const kCleanersUsage = "usage: kestrow cleaners [--json]\n";
const char* const kCleanUsage = "usage: kestrow clean [--estimate] [--json]\n";

// Parses the flags a command allows; false (after printing usage) on anything else.
bool parseFlags(const CommandContext& context, const char* command, const char* usage,
                std::map<std::string, bool*> flags) {
    for (const auto& arg : context.arguments) {
        const auto flag = flags.find(arg);
        if (flag == flags.end()) {
            context.err << "kestrow " << command << ": unknown option '" << arg << "'\n" << usage;
            return false;
        }
        *flag->second = true;
    }
    return true;
}

Json dateOrNull(const std::optional<WallTime>& date) {
    return date ? Json(formatIsoDate(*date)) : Json(nullptr);
}

template <typename T>
Json orNull(const std::optional<T>& value) {
    return value ? Json(*value) : Json(nullptr);
}

Json developerRows(SettingsStore& standard, const UserLocations& folders) {
    Json rows = Json::array();
    for (const auto& row :
         CleanerRows::developer(standard, folders, CleanerStack::kXcodeInstalled)) {
        rows.push_back({{"id", row.id},
                        {"name", row.name},
                        {"title", row.title},
                        {"enabled", row.enabled},
                        {"available", row.available},
                        {"lastRun", dateOrNull(row.lastRun)},
                        {"lastFreed", orNull(row.lastFreed)},
                        {"caption", orNull(row.caption)},
                        {"help", orNull(row.help)}});
    }
    return rows;
}

Json browserRow(SettingsStore& standard) {
    const auto row = CleanerRows::browsers(standard, Wording::linux(std::nullopt));
    Json lastRuns = Json::object();
    for (const auto& [id, date] : StandardSettings(standard).browserReclaimLastRuns())
        lastRuns[id] = formatIsoDate(date);
    return {{"enabled", row.enabled},
            {"lastRuns", std::move(lastRuns)},
            {"blocked", row.blocked},
            {"accessCaption", orNull(row.accessCaption)}};
}

}  // namespace

int runCleanersCommand(const CommandContext& context) {
    bool json = false;
    if (!parseFlags(context, "cleaners", kCleanersUsage, {{"--json", &json}})) return kExitUsage;
    StderrLogSink sink(LogLevel::error);
    const UserLocations folders = context.locations();
    SettingsStore standard(folders.standardStoreFile(), Logger(sink, LogArea::general));
    const Json document = {{"developer", developerRows(standard, folders)},
                           {"browsers", browserRow(standard)}};
    if (json) {
        context.out << document.dump(2) << "\n";
        return kExitDone;
    }
    for (const auto& row : document["developer"]) {
        if (!row["available"].get<bool>() && !row["enabled"].get<bool>()) continue;
        context.out << (row["enabled"].get<bool>() ? "[on]  " : "[off] ")
                    << row["title"].get<std::string>();
        if (!row["caption"].is_null())
            context.out << "  (" << row["caption"].get<std::string>() << ")";
        context.out << "\n";
    }
    const auto& browsers = document["browsers"];
    context.out << (browsers["enabled"].get<bool>() ? "[on]  " : "[off] ")
                << CleanerRows::kBrowserTitle << "\n";
    if (!browsers["accessCaption"].is_null())
        context.out << "      " << browsers["accessCaption"].get<std::string>() << "\n";
    return kExitDone;
}

int runCleanCommand(const CommandContext& context) {
    bool json = false;
    bool estimate = false;
    if (!parseFlags(context, "clean", kCleanUsage, {{"--json", &json}, {"--estimate", &estimate}}))
        return kExitUsage;
    const auto app = commandApplication();
    // Passes log their outcome; in a terminal only real trouble shows.
    StderrLogSink sink(LogLevel::error);
    const Logger log(sink, LogArea::general);
    const UserLocations folders = context.locations();
    SettingsStore standard(folders.standardStoreFile(), log);
    SystemClock clock;
    QtMainExecutor executor;
    CleanerStack stack(clock, executor, standard, folders, log);

    if (estimate) {
        const auto ids = stack.developer().enabledIDs();
        const bool browsers = BrowserReclaimPreference::enabled(standard);
        const std::int64_t bytes = MaintenanceCleaner::estimateBytes(ids, browsers, folders);
        if (json) {
            context.out << Json({{"estimateBytes", bytes}}).dump(2) << "\n";
        } else {
            context.out << CleanerRows::estimateLine(!ids.empty() || browsers, bytes) << "\n";
        }
        return kExitDone;
    }

    std::optional<MaintenanceCleaner::FreeUpResult> result;
    QEventLoop loop;
    stack.developer().freeUpSpace([&](MaintenanceCleaner::FreeUpResult r) {
        result = std::move(r);
        loop.quit();
    });
    if (!result) loop.exec();
    const ReclaimReport& report = result->report;
    if (json) {
        context.out << Json({{"summary", result->summary},
                             {"freedBytes", report.freedBytes},
                             {"trashedCount", report.trashedCount},
                             {"skippedRunning", report.skippedRunning},
                             {"reclaimed", report.reclaimedNames},
                             {"blocked", report.blocked},
                             {"failures", report.failures}})
                           .dump(2)
                    << "\n";
    } else {
        context.out << result->summary << "\n";
        for (const auto& failure : report.failures) context.out << "  " << failure << "\n";
    }
    return kExitDone;
}

}  // namespace kestrow
