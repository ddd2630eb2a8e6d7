#pragma once

#include <optional>
#include <vector>

#include "shares/vpn_service.h"

namespace kestrow {

// The system's VPN services and their states (NetworkManager's VPN and WireGuard connections on
// Linux). Blocking for a bounded time; safe from any thread.
class VpnServices {
public:
    virtual ~VpnServices() = default;
    // Sorted by name; absent when the system's configuration could not be read.
    virtual std::optional<std::vector<VPNService>> read() = 0;
};

}  // namespace kestrow
