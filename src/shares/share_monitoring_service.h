#pragma once

#include "app/service.h"
#include "shares/share_manager.h"

namespace kestrow {

// The share manager in the app's start and stop order.
class ShareMonitoringService final : public Service {
public:
    explicit ShareMonitoringService(ShareManager& manager) : manager_(manager) {}
    void start() override { manager_.startMonitoring(); }
    void stop() override { manager_.stopMonitoring(); }

private:
    ShareManager& manager_;
};

}  // namespace kestrow
