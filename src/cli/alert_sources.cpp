#include "cli/alert_sources.h"

#include "app/settings/standard_settings.h"
#include "insights/hog_scanner.h"
#include "insights/hog_store.h"
#include "menu/menu_alert_feed.h"
#include "platform/demo/simulated_desktop.h"

namespace kestrow {

std::function<std::optional<std::int64_t>()> AlertSources::homeFreeBytes(
    bool demo, std::filesystem::path home) {
    if (demo) return [] { return std::optional<std::int64_t>(SimulatedDesktop::kHomeFreeBytes); };
    return [home = std::move(home)] { return HogScanner::freeBytes(home); };
}

std::vector<MenuAlert> AlertSources::oneShot(BackupStatusModel& model, SettingsStore& standardStore,
                                             const UserLocations& folders, bool demo) {
    MenuAlertFacts facts = MenuAlertFeed::collect(
        {model, standardStore, nullptr, nullptr, homeFreeBytes(demo, folders.home)});
    facts.settingsReadable = true;
    if (!demo) {
        auto hogs = HogWatch::latest(HogStore(HogStore::folderIn(folders)).load(),
                                     StandardSettings(standardStore).hogWatchDismissed());
        facts.hogs = std::move(hogs.alerts);
        facts.daysUntilFull = hogs.daysUntilFull;
    }
    return MenuAlerts::raise(facts);
}

}  // namespace kestrow
