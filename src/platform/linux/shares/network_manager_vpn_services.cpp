#include "platform/linux/shares/network_manager_vpn_services.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusVariant>

#include <algorithm>
#include <map>

namespace kestrow {
namespace {

const QString kService = QStringLiteral("org.freedesktop.NetworkManager");
const QString kProperties = QStringLiteral("org.freedesktop.DBus.Properties");
constexpr int kReplyMs = 2000;
using SettingsMap = QMap<QString, QVariantMap>;

std::optional<QVariant> property(QDBusConnection& bus, const QString& path,
                                 const QString& interface, const QString& name) {
    auto call = QDBusMessage::createMethodCall(kService, path, kProperties, QStringLiteral("Get"));
    call << interface << name;
    const QDBusMessage reply = bus.call(call, QDBus::Block, kReplyMs);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return std::nullopt;
    return reply.arguments().constFirst().value<QDBusVariant>().variant();
}

QList<QDBusObjectPath> paths(const QVariant& value) {
    if (value.canConvert<QDBusArgument>()) return qdbus_cast<QList<QDBusObjectPath>>(value);
    return value.value<QList<QDBusObjectPath>>();
}

VPNConnectionState stateOf(uint active) {
    switch (active) {
        case 1:
            return VPNConnectionState::connecting;
        case 2:
            return VPNConnectionState::connected;
        case 3:
            return VPNConnectionState::disconnecting;
        default:
            return VPNConnectionState::off;
    }
}

}  // namespace

NetworkManagerVpnServices::NetworkManagerVpnServices(QDBusConnection systemBus)
    : bus_(std::move(systemBus)) {
    qDBusRegisterMetaType<SettingsMap>();
}

std::optional<std::vector<VPNService>> NetworkManagerVpnServices::read() {
    if (!bus_.isConnected()) return std::nullopt;
    const QDBusMessage listed =
        bus_.call(QDBusMessage::createMethodCall(
                      kService, QStringLiteral("/org/freedesktop/NetworkManager/Settings"),
                      QStringLiteral("org.freedesktop.NetworkManager.Settings"),
                      QStringLiteral("ListConnections")),
                  QDBus::Block, kReplyMs);
    if (listed.type() != QDBusMessage::ReplyMessage || listed.arguments().isEmpty())
        return std::nullopt;

    // The state of each connection that is active now, by UUID.
    std::map<std::string, VPNConnectionState> states;
    const auto active = property(bus_, QStringLiteral("/org/freedesktop/NetworkManager"), kService,
                                 QStringLiteral("ActiveConnections"));
    if (!active) return std::nullopt;
    const QString activeInterface =
        QStringLiteral("org.freedesktop.NetworkManager.Connection.Active");
    for (const QDBusObjectPath& path : paths(*active)) {
        const auto uuid = property(bus_, path.path(), activeInterface, QStringLiteral("Uuid"));
        const auto state = property(bus_, path.path(), activeInterface, QStringLiteral("State"));
        if (uuid && state) states[uuid->toString().toStdString()] = stateOf(state->toUInt());
    }

    std::vector<VPNService> services;
    for (const QDBusObjectPath& path : paths(listed.arguments().constFirst())) {
        const QDBusMessage reply =
            bus_.call(QDBusMessage::createMethodCall(
                          kService, path.path(),
                          QStringLiteral("org.freedesktop.NetworkManager.Settings.Connection"),
                          QStringLiteral("GetSettings")),
                      QDBus::Block, kReplyMs);
        if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) continue;
        const SettingsMap settings = qdbus_cast<SettingsMap>(reply.arguments().constFirst());
        const QVariantMap connection = settings.value(QStringLiteral("connection"));
        const QString type = connection.value(QStringLiteral("type")).toString();
        if (type != QStringLiteral("vpn") && type != QStringLiteral("wireguard")) continue;
        VPNService service;
        service.id = connection.value(QStringLiteral("uuid")).toString().toStdString();
        service.name = connection.value(QStringLiteral("id")).toString().toStdString();
        const auto state = states.find(service.id);
        service.state = state == states.end() ? VPNConnectionState::off : state->second;
        services.push_back(std::move(service));
    }
    std::stable_sort(services.begin(), services.end(),
                     [](const VPNService& a, const VPNService& b) { return a.name < b.name; });
    return services;
}

}  // namespace kestrow
