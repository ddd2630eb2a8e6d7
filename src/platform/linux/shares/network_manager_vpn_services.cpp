#include "platform/linux/shares/network_manager_vpn_services.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVariant>

#include <algorithm>
#include <map>

namespace kestrow {
namespace {

const QString kService = QStringLiteral("org.freedesktop.NetworkManager");
const QString kManagerPath = QStringLiteral("/org/freedesktop/NetworkManager");
const QString kSettingsPath = QStringLiteral("/org/freedesktop/NetworkManager/Settings");
const QString kProperties = QStringLiteral("org.freedesktop.DBus.Properties");
const QString kActiveInterface = QStringLiteral("org.freedesktop.NetworkManager.Connection.Active");

using ConnectionSettings = QMap<QString, QVariantMap>;

std::vector<QDBusObjectPath> objectPaths(const QVariant& value) {
    std::vector<QDBusObjectPath> paths;
    if (value.canConvert<QDBusArgument>()) {
        const QDBusArgument argument = value.value<QDBusArgument>();
        if (argument.currentType() != QDBusArgument::ArrayType) return paths;
        argument.beginArray();
        while (!argument.atEnd()) {
            QDBusObjectPath path;
            argument >> path;
            paths.push_back(path);
        }
        argument.endArray();
    } else if (value.canConvert<QList<QDBusObjectPath>>()) {
        for (const auto& path : value.value<QList<QDBusObjectPath>>()) paths.push_back(path);
    }
    return paths;
}

VPNConnectionState stateOf(uint activeState) {
    switch (activeState) {
        case 1:
            return VPNConnectionState::connecting;
        case 2:
            return VPNConnectionState::connected;
        case 3:
            return VPNConnectionState::disconnecting;
        case 4:
            return VPNConnectionState::off;
        default:
            return VPNConnectionState::unavailable;
    }
}

}  // namespace

NetworkManagerVpnServices::NetworkManagerVpnServices(QDBusConnection systemBus, int replyTimeoutMs)
    : bus_(std::move(systemBus)), timeoutMs_(replyTimeoutMs) {}

std::optional<std::vector<VPNService>> NetworkManagerVpnServices::read() {
    if (!bus_.isConnected()) return std::nullopt;
    const auto call = [this](const QString& path, const QString& interface, const QString& method,
                             const QVariantList& arguments = {}) {
        auto message = QDBusMessage::createMethodCall(kService, path, interface, method);
        message.setArguments(arguments);
        return bus_.call(message, QDBus::Block, timeoutMs_);
    };

    const QDBusMessage listed =
        call(kSettingsPath, QStringLiteral("org.freedesktop.NetworkManager.Settings"),
             QStringLiteral("ListConnections"));
    if (listed.type() != QDBusMessage::ReplyMessage || listed.arguments().isEmpty())
        return std::nullopt;

    std::vector<VPNService> services;
    for (const QDBusObjectPath& path : objectPaths(listed.arguments().constFirst())) {
        const QDBusMessage reply =
            call(path.path(), QStringLiteral("org.freedesktop.NetworkManager.Settings.Connection"),
                 QStringLiteral("GetSettings"));
        if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) continue;
        const QVariant first = reply.arguments().constFirst();
        if (!first.canConvert<QDBusArgument>()) continue;
        ConnectionSettings settings;
        first.value<QDBusArgument>() >> settings;
        const QVariantMap connection = settings.value(QStringLiteral("connection"));
        const QString type = connection.value(QStringLiteral("type")).toString();
        if (type != QStringLiteral("vpn") && type != QStringLiteral("wireguard")) continue;
        const QString uuid = connection.value(QStringLiteral("uuid")).toString();
        if (uuid.isEmpty()) continue;
        services.push_back({uuid.toStdString(),
                            connection.value(QStringLiteral("id")).toString().toStdString(),
                            VPNConnectionState::off});
    }

    // The active connections say which of them are up or on their way.
    const QDBusMessage active = call(kManagerPath, kProperties, QStringLiteral("Get"),
                                     {kService, QStringLiteral("ActiveConnections")});
    if (active.type() == QDBusMessage::ReplyMessage && !active.arguments().isEmpty()) {
        const QVariant value = active.arguments().constFirst().value<QDBusVariant>().variant();
        for (const QDBusObjectPath& path : objectPaths(value)) {
            const QDBusMessage uuidReply = call(path.path(), kProperties, QStringLiteral("Get"),
                                                {kActiveInterface, QStringLiteral("Uuid")});
            const QDBusMessage stateReply = call(path.path(), kProperties, QStringLiteral("Get"),
                                                 {kActiveInterface, QStringLiteral("State")});
            if (uuidReply.type() != QDBusMessage::ReplyMessage ||
                stateReply.type() != QDBusMessage::ReplyMessage ||
                uuidReply.arguments().isEmpty() || stateReply.arguments().isEmpty())
                continue;
            const std::string uuid = uuidReply.arguments()
                                         .constFirst()
                                         .value<QDBusVariant>()
                                         .variant()
                                         .toString()
                                         .toStdString();
            const uint state =
                stateReply.arguments().constFirst().value<QDBusVariant>().variant().toUInt();
            for (VPNService& service : services)
                if (service.id == uuid) service.state = stateOf(state);
        }
    }
    std::stable_sort(services.begin(), services.end(),
                     [](const VPNService& a, const VPNService& b) { return a.name < b.name; });
    return services;
}

}  // namespace kestrow
