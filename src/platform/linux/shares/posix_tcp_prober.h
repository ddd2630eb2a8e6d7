#pragma once

#include "platform/share_network.h"
#include "shares/host_lookup.h"

namespace kestrow {

// A TCP connect, closed as soon as it is made: nothing is sent. Names go through the shared
// look-up; every address of a name is tried, all within the one time limit.
class PosixTcpProber final : public TcpProber {
public:
    explicit PosixTcpProber(HostLookup& lookup) : lookup_(lookup) {}
    TcpProbeResult probe(const std::string& host, std::uint16_t port,
                         double timeoutSeconds) override;

private:
    HostLookup& lookup_;
};

}  // namespace kestrow
