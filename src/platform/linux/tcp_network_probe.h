#pragma once

#include "platform/network_probe.h"

namespace kestrow {

// A TCP connection attempt, closed as soon as it is made: nothing is sent.
class TcpNetworkProbe final : public NetworkProbe {
public:
    // A file server on the local network answers within a few seconds or not at all.
    explicit TcpNetworkProbe(double timeLimitSeconds = 5.0) : timeLimitSeconds_(timeLimitSeconds) {}

    std::unique_ptr<Handle> connect(const std::string& host, std::uint16_t port,
                                    std::function<void(bool reachable)> done) override;

private:
    double timeLimitSeconds_;
};

}  // namespace kestrow
