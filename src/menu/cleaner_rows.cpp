#include "menu/cleaner_rows.h"

#include <algorithm>

#include "app/settings/preference_accessors.h"
#include "cleaners/browser_cache_targets.h"
#include "cleaners/developer_cleaners.h"
#include "cleaners/free_up_summary.h"
#include "support/byte_count_format.h"

namespace kestrow {

std::vector<CleanerRows::Developer> CleanerRows::developer(SettingsStore& standard,
                                                           const UserLocations& folders,
                                                           bool xcodeInstalled) {
    const StandardSettings settings(standard);
    const auto lastRuns = settings.maintenanceLastRuns();
    const auto lastFreed = settings.maintenanceLastFreed();
    const auto available = DeveloperCleaners::availableIDs(xcodeInstalled, folders);
    std::vector<Developer> rows;
    for (const auto& id : DeveloperCleaners::ids()) {
        Developer row;
        row.id = id;
        row.name = DeveloperCleaners::name(id);
        row.title = DeveloperCleaners::title(id);
        row.enabled = settings.maintenanceEnabled(id);
        row.available = available.contains(id);
        if (const auto run = lastRuns.find(id); run != lastRuns.end()) row.lastRun = run->second;
        if (const auto freed = lastFreed.find(id); freed != lastFreed.end())
            row.lastFreed = freed->second;
        if (const auto text = CleanerCaption::lastPass(row.lastFreed.value_or(0), row.lastRun)) {
            row.caption = text->caption;
            row.help = text->help;
        }
        rows.push_back(std::move(row));
    }
    return rows;
}

std::vector<CleanerRows::Developer> CleanerRows::offered(SettingsStore& standard,
                                                         const UserLocations& folders,
                                                         bool xcodeInstalled) {
    auto rows = developer(standard, folders, xcodeInstalled);
    std::erase_if(rows, [](const Developer& row) {
        return !row.available && !(row.enabled && row.lastFreed.value_or(0) > 0);
    });
    return rows;
}

CleanerRows::Browsers CleanerRows::browsers(SettingsStore& standard, const Wording& wording) {
    const StandardSettings settings(standard);
    Browsers row;
    row.enabled = BrowserReclaimPreference::enabled(standard);
    for (const auto& [id, date] : settings.browserReclaimLastRuns())
        row.lastRun = row.lastRun ? std::max(*row.lastRun, date) : date;
    for (const auto& [id, bytes] : settings.browserReclaimLastFreed()) row.lastFreed += bytes;
    row.blocked = settings.browserReclaimBlocked();
    if (const auto text = CleanerCaption::lastPass(row.lastFreed, row.lastRun)) {
        row.caption = text->caption;
        row.help = text->help;
    }
    row.accessCaption = BrowserCacheTargets::accessCaption(row.blocked, wording);
    return row;
}

std::string CleanerRows::estimateLine(bool anyCleanerOn, std::optional<std::int64_t> bytes) {
    if (!anyCleanerOn) return "Turn on a cleaner in Weekly cleaners";
    if (!bytes) return "Measuring what your cleaners can free…";
    if (*bytes < 1) return "Your cleaners have nothing to free now";
    return formatByteCount(*bytes) + " from your cleaners";
}

}  // namespace kestrow
