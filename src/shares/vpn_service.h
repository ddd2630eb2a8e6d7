#pragma once

#include <optional>
#include <string>

namespace kestrow {

enum class VPNConnectionState {
    connected,
    connecting,
    disconnecting,
    off,
    unavailable,
    notConfigured
};

// One VPN the system knows (on Linux: a NetworkManager connection of type VPN or WireGuard).
struct VPNService {
    std::string id;  // the system's identifier (NetworkManager: the connection's UUID)
    std::string name;
    VPNConnectionState state = VPNConnectionState::unavailable;
    bool operator==(const VPNService&) const = default;
};

// A share's link to a VPN service, as saved in its record.
struct VPNLink {
    std::string id;
    std::optional<std::string> savedName;
    bool operator==(const VPNLink&) const = default;
};

}  // namespace kestrow
