#pragma once

#include <QDBusConnection>

#include "platform/vpn_services.h"

namespace kestrow {

// The VPNs NetworkManager knows: its connections of type "vpn" and "wireguard", each with the
// state of its active connection (off when it has none). Blocking with a short limit per call;
// usable from a worker thread.
class NetworkManagerVpnServices final : public VpnServices {
public:
    explicit NetworkManagerVpnServices(QDBusConnection systemBus, int replyTimeoutMs = 2000);

    std::optional<std::vector<VPNService>> read() override;

private:
    QDBusConnection bus_;
    int timeoutMs_;
};

}  // namespace kestrow
