#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/clock.h"
#include "support/environment.h"

namespace kestrow {

// One installed application and when it was last used, when that is known.
struct AppUsage {
    std::string path;  // its desktop entry
    std::optional<WallTime> lastUsed;
    bool operator==(const AppUsage&) const = default;
};

// Applications that have not been opened for half a year, as candidates for removal.
//
// Linux keeps no record of when an application last ran. The nearest real one is the list of
// recently used files that GTK keeps for the desktop: every file an application opens through it
// names the application's command line and when it last opened a file. So an application's last
// use is the newest of those among records whose command's program is the program its desktop
// entry starts. Applications that never open files that way (terminals, games, most programs not
// written with GTK) have no record and stay unknown, and unknown is never called unused. The
// list also forgets files after a while, which only ever makes a use look more recent or unknown.
class UnusedApps {
public:
    struct Sources {
        // Where desktop entries live, the one that wins first ($XDG_DATA_HOME, then
        // $XDG_DATA_DIRS, each with "applications" appended).
        std::vector<std::filesystem::path> applicationFolders;
        std::filesystem::path recentlyUsed;  // $XDG_DATA_HOME/recently-used.xbel

        static Sources standard(const EnvironmentLookup& environment);
    };

    // 180 days.
    static constexpr double kUnusedSeconds = 15'552'000.0;

    // Every application a menu would show, in folder order and then path order. Entries hidden
    // from menus, switched off, or of another type than an application are left out, and an
    // entry shadows those of the same name in later folders.
    static std::vector<AppUsage> applications(const Sources& sources);

    // Those last used at least 180 days before `now`, the longest unused first.
    static std::vector<AppUsage> unused(std::vector<AppUsage> apps, WallTime now);

    // From the recently-used file: each program's name (no folder) and when it last opened
    // anything. Whatever cannot be read as such a record is passed over.
    static std::map<std::string, WallTime, std::less<>> lastUses(std::string_view xbel);
};

}  // namespace kestrow
