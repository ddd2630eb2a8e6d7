#pragma once

#include <filesystem>

#include "platform/login_items.h"
#include "support/logger.h"

namespace kestrow {

// The start-at-launch switch: on when the app is registered to start at login.
class StartAtLaunch {
public:
    StartAtLaunch(LoginItems& loginItems, Logger log);

    bool enabled() const { return enabled_; }
    // Registers or unregisters the app. A failure is logged and leaves `enabled` as it really is.
    void setEnabled(bool enabled);

    // Whether `executable` is an installed agent, the only kind the first launch registers to
    // start at login. Installed means: its real path lies in a system or user program folder
    // (/usr, /opt, ~/.local/bin or ~/bin) and no folder above it holds a CMakeCache.txt, so a
    // binary built in place, wherever the build tree is, never signs itself up.
    static bool isInstalledAgent(const std::filesystem::path& executable,
                                 const std::filesystem::path& home);

private:
    LoginItems& loginItems_;
    Logger log_;
    bool enabled_;
};

}  // namespace kestrow
