#include "platform/linux/shares/network_manager_path_monitor.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QDBusVariant>

namespace kestrow {
namespace {

const QString kService = QStringLiteral("org.freedesktop.NetworkManager");
const QString kPath = QStringLiteral("/org/freedesktop/NetworkManager");

}  // namespace

NetworkManagerPathMonitor::NetworkManagerPathMonitor(QDBusConnection systemBus, QObject* parent)
    : QObject(parent), bus_(std::move(systemBus)) {}

NetworkManagerPathMonitor::~NetworkManagerPathMonitor() {
    stop();
}

void NetworkManagerPathMonitor::start(std::function<void(bool satisfied)> changed) {
    stop();
    changed_ = std::move(changed);
    last_.reset();
    if (!bus_.isConnected()) {
        report(true);
        return;
    }
    bus_.connect(kService, kPath, kService, QStringLiteral("StateChanged"), this,
                 SLOT(onStateChanged(uint)));
    watcher_ =
        new QDBusServiceWatcher(kService, bus_, QDBusServiceWatcher::WatchForOwnerChange, this);
    connect(watcher_, &QDBusServiceWatcher::serviceOwnerChanged, this, [this] { readNow(); });
    readNow();
}

void NetworkManagerPathMonitor::stop() {
    if (!changed_) return;
    bus_.disconnect(kService, kPath, kService, QStringLiteral("StateChanged"), this,
                    SLOT(onStateChanged(uint)));
    delete watcher_;
    watcher_ = nullptr;
    changed_ = nullptr;
}

void NetworkManagerPathMonitor::readNow() {
    auto call = QDBusMessage::createMethodCall(
        kService, kPath, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    call << kService << QStringLiteral("State");
    auto* pending = new QDBusPendingCallWatcher(bus_.asyncCall(call, 2000), this);
    connect(pending, &QDBusPendingCallWatcher::finished, this,
            [this](QDBusPendingCallWatcher* done) {
                done->deleteLater();
                if (!changed_) return;
                const QDBusPendingReply<QDBusVariant> reply = *done;
                // No NetworkManager (or one that cannot say): nothing to hold the shares back.
                if (reply.isError()) {
                    report(true);
                    return;
                }
                const QVariant value = reply.value().variant();
                bool isNumber = false;
                const uint state = value.toUInt(&isNumber);
                report(isNumber ? satisfied(state) : true);
            });
}

void NetworkManagerPathMonitor::onStateChanged(uint state) {
    report(satisfied(state));
}

void NetworkManagerPathMonitor::report(bool isSatisfied) {
    if (!changed_ || last_ == isSatisfied) return;
    last_ = isSatisfied;
    changed_(isSatisfied);
}

}  // namespace kestrow
