#pragma once

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

private:
    LoginItems& loginItems_;
    Logger log_;
    bool enabled_;
};

}  // namespace kestrow
