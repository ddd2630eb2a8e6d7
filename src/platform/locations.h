#pragma once

#include <filesystem>

#include "support/environment.h"

namespace kestrow {

// The per-user folders, from HOME and the XDG variables. Everything Kestrow writes for itself
// lives under these.
struct UserLocations {
    std::filesystem::path home;
    std::filesystem::path configHome;  // $XDG_CONFIG_HOME, else ~/.config
    std::filesystem::path dataHome;    // $XDG_DATA_HOME, else ~/.local/share
    std::filesystem::path cacheHome;   // $XDG_CACHE_HOME, else ~/.cache
    std::filesystem::path runtimeDir;  // $XDG_RUNTIME_DIR, else empty

    // XDG variables that are unset, empty or relative are ignored, as the base-directory rules say.
    static UserLocations resolve(const EnvironmentLookup& environment);

    std::filesystem::path settingsFolder() const { return configHome / "kestrow"; }
    // The app's own settings.
    std::filesystem::path standardStoreFile() const {
        return settingsFolder() / "bar.vemb.orvel.plist";
    }
    // The store shared with whatever shows Kestrow's status outside the app.
    std::filesystem::path sharedStoreFile() const {
        return settingsFolder() / "QX7T2LM9KA.bar.vemb.orvel.plist";
    }
    // Everything the demo remembers, kept apart so that running the demo never touches the
    // user's own settings or the status shown outside the app.
    std::filesystem::path demoFolder() const { return cacheHome / "kestrow" / "demo"; }
    std::filesystem::path autostartEntry() const {
        return configHome / "autostart" / "kestrow.desktop";
    }
};

}  // namespace kestrow
