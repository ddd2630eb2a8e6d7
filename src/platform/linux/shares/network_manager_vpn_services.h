#pragma once

#include <QDBusConnection>

#include "platform/vpn_services.h"

namespace kestrow {

// NetworkManager's VPN and WireGuard connections (id = connection UUID, name = connection id),
// in the states of their active connections. Unreadable without NetworkManager.
class NetworkManagerVpnServices final : public VpnServices {
public:
    explicit NetworkManagerVpnServices(QDBusConnection systemBus);
    std::optional<std::vector<VPNService>> read() override;

private:
    QDBusConnection bus_;
};

}  // namespace kestrow
