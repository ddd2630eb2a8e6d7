// The TCP prober against real sockets on loopback: a listener, a closed port, and a name whose
// look-up hangs, which must still end within the probe's limit.
#include "platform/linux/shares/posix_tcp_prober.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "platform/linux/shares/getaddrinfo_host_resolver.h"
#include "platform/linux/system_clock.h"
#include "support/serial_queue.h"

namespace kestrow {
namespace {

// A loopback socket on a free port; listening or only bound (a closed port nobody else takes).
class LoopbackPort {
public:
    explicit LoopbackPort(bool listen) {
        fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address);
        socklen_t size = sizeof address;
        ::getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &size);
        port_ = ntohs(address.sin_port);
        if (listen) ::listen(fd_, 4);
    }
    ~LoopbackPort() { ::close(fd_); }
    std::uint16_t port() const { return port_; }

private:
    int fd_ = -1;
    std::uint16_t port_ = 0;
};

class HangingResolver final : public HostResolver {
public:
    std::optional<std::set<std::string>> resolve(const std::string&) override {
        std::unique_lock lock(mutex_);
        gate_.wait(lock, [&] { return released_; });
        return std::nullopt;
    }
    void release() {
        std::lock_guard lock(mutex_);
        released_ = true;
        gate_.notify_all();
    }

private:
    std::mutex mutex_;
    std::condition_variable gate_;
    bool released_ = false;
};

double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

TEST(PosixTcpProber, AnswersForListenersAndNotForClosedPorts) {
    GetaddrinfoHostResolver resolver;
    SystemClock clock;
    SerialQueue background("lookup");
    HostLookup lookup(resolver, clock, background);
    PosixTcpProber prober(lookup);

    const LoopbackPort listening(true);
    const LoopbackPort closed(false);
    auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(prober.probe("127.0.0.1", listening.port(), 2.0).reachable);
    EXPECT_TRUE(prober.probe("localhost", listening.port(), 2.0).reachable);
    const TcpProbeResult refused = prober.probe("127.0.0.1", closed.port(), 2.0);
    EXPECT_FALSE(refused.reachable);
    EXPECT_FALSE(refused.denied);         // Linux has no such refusal
    EXPECT_LT(secondsSince(start), 1.0);  // a refusal is an answer, not a wait
    EXPECT_FALSE(prober.probe("127.0.0.1", 0, 2.0).reachable);
}

TEST(PosixTcpProber, AHangingNameLookUpEndsAtTheProbeLimit) {
    HangingResolver resolver;
    SystemClock clock;
    SerialQueue background("lookup");
    HostLookup lookup(resolver, clock, background);
    PosixTcpProber prober(lookup);
    const LoopbackPort listening(true);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(prober.probe("nas.example", listening.port(), 0.3).reachable);
    const double took = secondsSince(start);
    EXPECT_GE(took, 0.29);
    EXPECT_LT(took, 1.0);
    resolver.release();
}

}  // namespace
}  // namespace kestrow
