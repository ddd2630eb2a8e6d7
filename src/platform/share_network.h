#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>

namespace kestrow {

struct TcpProbeResult {
    bool reachable = false;
    // The system itself refused the connection (a local-network permission). Never set on Linux,
    // where no such permission exists.
    bool denied = false;
};

// Blocking probes for the reachability checks; safe from any thread, never called on the main
// thread, and each returns within its time limit even when the server hangs.
class TcpProber {
public:
    virtual ~TcpProber() = default;
    virtual TcpProbeResult probe(const std::string& host, std::uint16_t port,
                                 double timeoutSeconds) = 0;
};

// Service discovery of file servers ("_smb._tcp"; Avahi on Linux).
class ServiceBrowser {
public:
    virtual ~ServiceBrowser() = default;
    // The address of the service instance named `baseName` (compared case-insensitively), when
    // one is announced within `timeoutSeconds`. Linux mounts cannot go through the service name
    // itself, so the announcement is resolved to the address the mount then uses.
    virtual std::optional<std::string> find(const std::string& baseName, double timeoutSeconds) = 0;
};

// Name to addresses (getaddrinfo). Blocking; none when the name does not resolve.
class HostResolver {
public:
    virtual ~HostResolver() = default;
    virtual std::optional<std::set<std::string>> resolve(const std::string& host) = 0;
};

}  // namespace kestrow
