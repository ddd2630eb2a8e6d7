#include "platform/linux/tcp_network_probe.h"

#include <QTcpSocket>
#include <QTimer>

namespace kestrow {
namespace {

class SocketProbe final : public NetworkProbe::Handle {
public:
    SocketProbe(const std::string& host, std::uint16_t port, double timeLimitSeconds,
                std::function<void(bool)> done)
        : done_(std::move(done)) {
        QObject::connect(&socket_, &QTcpSocket::connected, [this] { finish(true); });
        QObject::connect(&socket_, &QTcpSocket::errorOccurred, [this] { finish(false); });
        QObject::connect(&timer_, &QTimer::timeout, [this] { finish(false); });
        timer_.setSingleShot(true);
        timer_.start(static_cast<int>(timeLimitSeconds * 1000.0));
        socket_.connectToHost(QString::fromStdString(host), port);
    }

private:
    void finish(bool reachable) {
        if (!done_) return;
        timer_.stop();
        QObject::disconnect(&socket_, nullptr, nullptr, nullptr);
        socket_.abort();
        auto done = std::move(done_);
        done_ = nullptr;
        done(reachable);
    }

    std::function<void(bool)> done_;
    QTimer timer_;
    QTcpSocket socket_;
};

}  // namespace

std::unique_ptr<NetworkProbe::Handle> TcpNetworkProbe::connect(const std::string& host,
                                                               std::uint16_t port,
                                                               std::function<void(bool)> done) {
    return std::make_unique<SocketProbe>(host, port, timeLimitSeconds_, std::move(done));
}

}  // namespace kestrow
