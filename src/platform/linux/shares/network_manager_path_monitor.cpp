#include "platform/linux/shares/network_manager_path_monitor.h"

#include <QDBusMessage>
#include <QDBusVariant>
#include <QTimer>

namespace kestrow {
namespace {

const QString kService = QStringLiteral("org.freedesktop.NetworkManager");
const QString kPath = QStringLiteral("/org/freedesktop/NetworkManager");
constexpr int kReplyMs = 2000;
constexpr std::uint32_t kConnectedLocal = 50;

}  // namespace

NetworkManagerPathMonitor::NetworkManagerPathMonitor(QDBusConnection systemBus)
    : bus_(std::move(systemBus)) {}

NetworkManagerPathMonitor::~NetworkManagerPathMonitor() {
    stop();
}

bool NetworkManagerPathMonitor::satisfied(std::optional<std::uint32_t> state) {
    return !state || *state == 0 || *state >= kConnectedLocal;
}

void NetworkManagerPathMonitor::start(std::function<void(bool)> changed) {
    if (started_) return;
    started_ = true;
    changed_ = std::move(changed);
    last_.reset();
    if (bus_.isConnected())
        bus_.connect(kService, kPath, kService, QStringLiteral("StateChanged"), this,
                     SLOT(stateChanged(uint)));
    // The first reading goes out from the event loop, as every later one does.
    QTimer::singleShot(0, this, [this] {
        if (started_) report(satisfied(readState()));
    });
}

void NetworkManagerPathMonitor::stop() {
    if (!started_) return;
    started_ = false;
    if (bus_.isConnected())
        bus_.disconnect(kService, kPath, kService, QStringLiteral("StateChanged"), this,
                        SLOT(stateChanged(uint)));
}

void NetworkManagerPathMonitor::stateChanged(uint state) {
    if (started_) report(satisfied(state));
}

std::optional<std::uint32_t> NetworkManagerPathMonitor::readState() {
    if (!bus_.isConnected()) return std::nullopt;
    auto call = QDBusMessage::createMethodCall(
        kService, kPath, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    call << kService << QStringLiteral("State");
    const QDBusMessage reply = bus_.call(call, QDBus::Block, kReplyMs);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return std::nullopt;
    const QVariant value = reply.arguments().constFirst().value<QDBusVariant>().variant();
    bool ok = false;
    const uint state = value.toUInt(&ok);
    if (!ok) return std::nullopt;
    return state;
}

void NetworkManagerPathMonitor::report(bool isSatisfied) {
    if (last_ == isSatisfied) return;
    last_ = isSatisfied;
    if (changed_) changed_(isSatisfied);
}

}  // namespace kestrow
