#include "platform/linux/shares/posix_tcp_prober.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

namespace kestrow {
namespace {

using Steady = std::chrono::steady_clock;

double secondsLeft(Steady::time_point deadline) {
    return std::chrono::duration<double>(deadline - Steady::now()).count();
}

// One connect to a numeric address, bounded by `deadline`.
bool connects(const std::string& address, std::uint16_t port, Steady::time_point deadline) {
    sockaddr_storage storage{};
    socklen_t length = 0;
    int family = AF_INET;
    auto* v4 = reinterpret_cast<sockaddr_in*>(&storage);
    auto* v6 = reinterpret_cast<sockaddr_in6*>(&storage);
    if (::inet_pton(AF_INET, address.c_str(), &v4->sin_addr) == 1) {
        v4->sin_family = AF_INET;
        v4->sin_port = htons(port);
        length = sizeof(sockaddr_in);
    } else if (::inet_pton(AF_INET6, address.c_str(), &v6->sin6_addr) == 1) {
        family = AF_INET6;
        v6->sin6_family = AF_INET6;
        v6->sin6_port = htons(port);
        length = sizeof(sockaddr_in6);
    } else {
        return false;
    }
    const int fd = ::socket(family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    bool ready = false;
    if (::connect(fd, reinterpret_cast<sockaddr*>(&storage), length) == 0) {
        ready = true;
    } else if (errno == EINPROGRESS) {
        for (;;) {
            const double left = secondsLeft(deadline);
            if (left <= 0) break;
            pollfd watch{fd, POLLOUT, 0};
            const int waited = ::poll(&watch, 1, std::max(1, static_cast<int>(left * 1000.0)));
            if (waited < 0 && errno == EINTR) continue;
            if (waited == 1) {
                int error = 0;
                socklen_t size = sizeof error;
                ready = ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
            }
            break;
        }
    }
    ::close(fd);
    return ready;
}

bool isNumeric(const std::string& host) {
    unsigned char buffer[16];
    return ::inet_pton(AF_INET, host.c_str(), buffer) == 1 ||
           ::inet_pton(AF_INET6, host.c_str(), buffer) == 1;
}

}  // namespace

TcpProbeResult PosixTcpProber::probe(const std::string& host, std::uint16_t port,
                                     double timeoutSeconds) {
    if (port == 0 || host.empty()) return {};
    const auto deadline =
        Steady::now() + std::chrono::duration_cast<Steady::duration>(
                            std::chrono::duration<double>(std::max(0.0, timeoutSeconds)));
    std::set<std::string> addresses;
    if (isNumeric(host)) {
        addresses.insert(host);
    } else if (auto found = lookup_.resolve(host, secondsLeft(deadline))) {
        addresses = std::move(*found);
    }
    for (const std::string& address : addresses) {
        if (secondsLeft(deadline) <= 0) break;
        if (connects(address, port, deadline)) return {true, false};
    }
    return {};
}

}  // namespace kestrow
