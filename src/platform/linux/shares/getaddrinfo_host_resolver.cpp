#include "platform/linux/shares/getaddrinfo_host_resolver.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace kestrow {

std::optional<std::set<std::string>> GetaddrinfoHostResolver::resolve(const std::string& host) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* results = nullptr;
    if (host.empty() || ::getaddrinfo(host.c_str(), nullptr, &hints, &results) != 0)
        return std::nullopt;
    std::set<std::string> addresses;
    for (const addrinfo* at = results; at != nullptr; at = at->ai_next) {
        char text[INET6_ADDRSTRLEN] = {};
        const void* raw = nullptr;
        if (at->ai_family == AF_INET)
            raw = &reinterpret_cast<const sockaddr_in*>(at->ai_addr)->sin_addr;
        else if (at->ai_family == AF_INET6)
            raw = &reinterpret_cast<const sockaddr_in6*>(at->ai_addr)->sin6_addr;
        if (raw != nullptr && ::inet_ntop(at->ai_family, raw, text, sizeof text) != nullptr)
            addresses.insert(text);
    }
    ::freeaddrinfo(results);
    if (addresses.empty()) return std::nullopt;
    return addresses;
}

}  // namespace kestrow
