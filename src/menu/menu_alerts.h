#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "insights/drive_health.h"
#include "insights/hog_watch.h"
#include "menu/menu_alert.h"
#include "timemachine/destination.h"

namespace kestrow {

// One raised alert: its kind, and for a fast-growing folder, which folder the card's buttons
// act on.
struct MenuAlert {
    MenuAlertKind kind;
    std::string folder;

    bool operator==(const MenuAlert&) const = default;
};

// Everything the alerts are raised from, as each owner publishes it. A fact that is not known
// raises nothing: an alert the user cannot make go away by fixing something is noise.
struct MenuAlertFacts {
    // Whether the Time Machine settings can be read; nothing before the first check.
    std::optional<bool> settingsReadable;
    // Local Network access refused: the network shares report it (false until they exist).
    bool localNetworkRefused = false;
    std::optional<DriveHealth::Reading> driveHealth;
    // The hog watch's alerts (in its order) and its days-until-full estimate.
    std::vector<HogAlert> hogs;
    std::optional<int> daysUntilFull;
    // Free space of the home volume now.
    std::optional<std::int64_t> freeBytes;
    // The current backup destination; none when Time Machine is not configured.
    std::optional<Destination> destination;
    std::optional<bool> automaticBackups;
    bool nightlyBackupEnabled = false;
    bool lastAttemptFailed = false;
    std::optional<std::string> failureReason;
};

struct MenuAlerts {
    // This Mac is low on space below this many free bytes, or when the disk fills within a week.
    static constexpr std::int64_t kLowSpaceBytes = 10'000'000'000;
    static constexpr int kLowSpaceDays = 7;
    // Time Machine thins its history once its disk is this close to full.
    static constexpr double kFullBackupDiskShare = 0.02;

    // In the order they were raised (which decides between two fast-growing folders); the menu
    // orders them by urgency.
    static std::vector<MenuAlert> raise(const MenuAlertFacts& facts);

    // Whether a failure reason says the backup disk had no room left.
    static bool saysOutOfRoom(std::string_view reason);
    // Whether the destination's disk is full enough for Time Machine to be deleting old backups.
    static bool backupDiskFull(const Destination& destination);

    struct Split {
        std::vector<MenuAlert> shown;
        std::vector<MenuAlert> hidden;
        bool operator==(const Split&) const = default;
    };
    // MenuAlertOrder's order and collapse for alerts that carry their folder.
    static std::vector<MenuAlert> ordered(const std::vector<MenuAlert>& alerts);
    static Split split(const std::vector<MenuAlert>& alerts, bool showAll);
    static std::vector<MenuAlertKind> kinds(const std::vector<MenuAlert>& alerts);
};

}  // namespace kestrow
