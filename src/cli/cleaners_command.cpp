#include "cli/cleaners_command.h"

#include <QCoreApplication>
#include <QEventLoop>

#include <nlohmann/json.hpp>

#include <memory>

#include "app/settings/preference_accessors.h"
#include "cleaners/browser_cache_targets.h"
#include "cleaners/developer_cleaners.h"
#include "cleaners/free_up_summary.h"
#include "cli/cleaner_stack.h"
#include "platform/linux/qt_main_executor.h"
#include "platform/linux/system_clock.h"
#include "support/byte_count_format.h"
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

// The command line's own event loop, for the executors the cleaners answer on.
std::unique_ptr<QCoreApplication> ensureApplication() {
    static int argc = 1;
    static char name[] = "kestrow";
    static char* argv[] = {name, nullptr};
    if (QCoreApplication::instance() != nullptr) return nullptr;
    return std::make_unique<QCoreApplication>(argc, argv);
}

Json developerRows(SettingsStore& standard, const UserLocations& folders) {
    const StandardSettings settings(standard);
    const auto lastRuns = settings.maintenanceLastRuns();
    const auto lastFreed = settings.maintenanceLastFreed();
    const auto available = DeveloperCleaners::availableIDs(CleanerStack::kXcodeInstalled, folders);
    Json rows = Json::array();
    for (const auto& id : DeveloperCleaners::ids()) {
        const auto run = lastRuns.find(id);
        const auto freed = lastFreed.find(id);
        const std::optional<WallTime> lastRun =
            run != lastRuns.end() ? std::optional(run->second) : std::nullopt;
        const auto caption =
            CleanerCaption::lastPass(freed != lastFreed.end() ? freed->second : 0, lastRun);
        rows.push_back(
            {{"id", id},
             {"name", DeveloperCleaners::name(id)},
             {"title", DeveloperCleaners::title(id)},
             {"enabled", settings.maintenanceEnabled(id)},
             {"available", available.contains(id)},
             {"lastRun", lastRun ? Json(formatIsoDate(*lastRun)) : Json(nullptr)},
             {"lastFreed", freed != lastFreed.end() ? Json(freed->second) : Json(nullptr)},
             {"caption", caption ? Json(caption->caption) : Json(nullptr)},
             {"help", caption && caption->help ? Json(*caption->help) : Json(nullptr)}});
    }
    return rows;
}

Json browserRow(SettingsStore& standard) {
    const StandardSettings settings(standard);
    Json lastRuns = Json::object();
    for (const auto& [id, date] : settings.browserReclaimLastRuns())
        lastRuns[id] = formatIsoDate(date);
    const auto blocked = settings.browserReclaimBlocked();
    const auto caption = BrowserCacheTargets::accessCaption(blocked);
    return {{"enabled", BrowserReclaimPreference::enabled(standard)},
            {"lastRuns", std::move(lastRuns)},
            {"blocked", blocked},
            {"accessCaption", caption ? Json(*caption) : Json(nullptr)}};
}

std::string estimateLine(bool anyOn, std::int64_t bytes) {
    if (!anyOn) return "Turn on a cleaner in Weekly cleaners";
    if (bytes < 1) return "Your cleaners have nothing to free now";
    return formatByteCount(bytes) + " from your cleaners";
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
                << "Clear browser caches weekly\n";
    if (!browsers["accessCaption"].is_null())
        context.out << "      " << browsers["accessCaption"].get<std::string>() << "\n";
    return kExitDone;
}

int runCleanCommand(const CommandContext& context) {
    bool json = false;
    bool estimate = false;
    if (!parseFlags(context, "clean", kCleanUsage, {{"--json", &json}, {"--estimate", &estimate}}))
        return kExitUsage;
    const auto app = ensureApplication();
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
            context.out << estimateLine(!ids.empty() || browsers, bytes) << "\n";
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
