#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "app/settings/settings_store.h"
#include "platform/locations.h"
#include "support/clock.h"
#include "support/wording.h"

namespace kestrow {

// The "Weekly cleaners" rows as the menu and `kestrow cleaners` show them, from the settings.
struct CleanerRows {
    struct Developer {
        std::string id;
        std::string name;
        std::string title;
        bool enabled = false;
        bool available = false;
        std::optional<WallTime> lastRun;
        std::optional<std::int64_t> lastFreed;
        std::optional<std::string> caption;
        std::optional<std::string> help;
    };
    struct Browsers {
        bool enabled = false;
        std::optional<WallTime> lastRun;  // the newest of the browsers' passes
        std::int64_t lastFreed = 0;       // what the browsers' last passes freed together
        std::vector<std::string> blocked;
        std::optional<std::string> caption;
        std::optional<std::string> help;
        std::optional<std::string> accessCaption;
    };

    static constexpr const char* kBrowserTitle = "Clear browser caches weekly";
    static constexpr const char* kFreeUpHelp = "Run every cleaner turned on in Weekly cleaners";

    // Every developer cleaner in table order, available or not.
    static std::vector<Developer> developer(SettingsStore& standard, const UserLocations& folders,
                                            bool xcodeInstalled);
    // The rows the menu offers: the cleaners available on this machine now, and one whose last
    // pass moved something here (its cache went to the Trash and comes back with the tool's next
    // use; the row keeps showing what it freed). A switch left on for a cache this machine never
    // had, say from copied settings, gets no row.
    static std::vector<Developer> offered(SettingsStore& standard, const UserLocations& folders,
                                          bool xcodeInstalled);
    // Its access caption said in `wording`.
    static Browsers browsers(SettingsStore& standard, const Wording& wording);
    // The line above the free-up button; nothing measured yet reads as measuring.
    static std::string estimateLine(bool anyCleanerOn, std::optional<std::int64_t> bytes);
};

}  // namespace kestrow
