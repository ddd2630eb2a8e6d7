#include "app/start_at_launch.h"

namespace kestrow {

StartAtLaunch::StartAtLaunch(LoginItems& loginItems, Logger log)
    : loginItems_(loginItems), log_(log), enabled_(loginItems.isEnabled()) {}

void StartAtLaunch::setEnabled(bool enabled) {
    if (const auto error = loginItems_.setEnabled(enabled)) {
        log_.error("Failed to {} start at launch: {}", enabled ? "enable" : "disable", *error);
    }
    enabled_ = loginItems_.isEnabled();
}

}  // namespace kestrow
