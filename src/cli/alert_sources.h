#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <vector>

#include "app/settings/settings_store.h"
#include "menu/menu_alerts.h"
#include "platform/locations.h"
#include "timemachine/backup_status_model.h"

namespace kestrow {

// Where the alert cards' facts come from beyond the backup model, shared by the agent and
// `kestrow status` so that both raise the same cards.
struct AlertSources {
    // Free space of the home volume now; the demo's own figure for the demo.
    static std::function<std::optional<std::int64_t>()> homeFreeBytes(bool demo,
                                                                      std::filesystem::path home);

    // The alerts a one-shot report can know: the backup model's, the schedule, free space and the
    // hog watch's stored snapshots (not the demo's: it has none). Drive health needs a slow tool
    // run and is left to the agent. The settings were readable, or the report would not run.
    static std::vector<MenuAlert> oneShot(BackupStatusModel& model, SettingsStore& standardStore,
                                          const UserLocations& folders, bool demo);
};

}  // namespace kestrow
