#pragma once

#include <array>
#include <functional>

#include "app/service.h"

namespace kestrow {

// The services the app starts, one field each so that the start order is written down once.
struct AppServices {
    Service& shareMonitoring;
    Service& vpnMonitor;
    Service& protectionRefresh;
    Service& backgroundMonitoring;
    Service& nightlyBackup;
    Service& browserCleaner;
    Service& developerCleaner;
    Service& keepAwake;
    Service& caffeine;
    Service& driveHealth;
    Service& hogWatch;

    // Launch order: shares first so mounts are under way early; the disk scans last.
    std::array<std::reference_wrapper<Service>, 11> startOrder() const {
        return {shareMonitoring, vpnMonitor,     protectionRefresh, backgroundMonitoring,
                nightlyBackup,   browserCleaner, developerCleaner,  keepAwake,
                caffeine,        driveHealth,    hogWatch};
    }
};

}  // namespace kestrow
