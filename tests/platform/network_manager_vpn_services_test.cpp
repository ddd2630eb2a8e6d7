// NetworkManager's VPN connections against python3-dbusmock's networkmanager on a private bus.
#include "platform/linux/shares/network_manager_vpn_services.h"

#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusVariant>

#include <gtest/gtest.h>

#include "private_session_bus.h"

namespace kestrow {
namespace {

using kestrow::testing::PrivateSessionBus;
using SettingsMap = QMap<QString, QVariantMap>;

const QString kService = QStringLiteral("org.freedesktop.NetworkManager");

QDBusMessage call(PrivateSessionBus& bus, const QString& path, const QString& interface,
                  const QString& method, const QVariantList& arguments) {
    auto message = QDBusMessage::createMethodCall(kService, path, interface, method);
    message.setArguments(arguments);
    const QDBusMessage reply = bus.connect().call(message);
    EXPECT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
    return reply;
}

// The mock answers some paths as object paths and some as plain strings.
QString pathOf(const QDBusMessage& reply) {
    const QVariant value = reply.arguments().value(0);
    if (value.canConvert<QDBusObjectPath>()) return value.value<QDBusObjectPath>().path();
    return value.toString();
}

QString addConnection(PrivateSessionBus& bus, const QString& id, const QString& uuid,
                      const QString& type) {
    SettingsMap settings;
    settings[QStringLiteral("connection")] = QVariantMap{
        {QStringLiteral("id"), id}, {QStringLiteral("uuid"), uuid}, {QStringLiteral("type"), type}};
    const QDBusMessage reply =
        call(bus, QStringLiteral("/org/freedesktop/NetworkManager/Settings"),
             QStringLiteral("org.freedesktop.NetworkManager.Settings"),
             QStringLiteral("AddConnection"), {QVariant::fromValue(settings)});
    return pathOf(reply);
}

TEST(NetworkManagerVpnServices, ListsVpnAndWireGuardConnectionsWithTheirStates) {
    qDBusRegisterMetaType<SettingsMap>();
    PrivateSessionBus bus;  // stands in for the system bus
    ASSERT_TRUE(bus.isRunning()) << bus.errorText().toStdString();
    ASSERT_TRUE(bus.startMock({"-t", "networkmanager"}, kService)) << bus.errorText().toStdString();
    const QString mock = QStringLiteral("org.freedesktop.DBus.Mock");
    const QDBusMessage device =
        call(bus, QStringLiteral("/org/freedesktop"), mock, QStringLiteral("AddEthernetDevice"),
             {QStringLiteral("mock_eth0"), QStringLiteral("eth0"), 100});
    const QString devicePath = pathOf(device);
    ASSERT_FALSE(devicePath.isEmpty());

    const QString office = addConnection(bus, QStringLiteral("Office"),
                                         QStringLiteral("aaaa-office"), QStringLiteral("vpn"));
    addConnection(bus, QStringLiteral("Home WG"), QStringLiteral("bbbb-home"),
                  QStringLiteral("wireguard"));
    addConnection(bus, QStringLiteral("Wired"), QStringLiteral("cccc-wired"),
                  QStringLiteral("802-3-ethernet"));

    NetworkManagerVpnServices services(bus.connect());
    const auto off = services.read();
    ASSERT_TRUE(off);
    EXPECT_EQ(*off, (std::vector<VPNService>{{"bbbb-home", "Home WG", VPNConnectionState::off},
                                             {"aaaa-office", "Office", VPNConnectionState::off}}));

    const QDBusMessage activated =
        call(bus, QStringLiteral("/org/freedesktop"), mock, QStringLiteral("AddActiveConnection"),
             {QStringList{devicePath}, office, QStringLiteral("/"), QStringLiteral("vpn0"), 1u});
    const QString activePath = pathOf(activated);
    ASSERT_FALSE(activePath.isEmpty());
    auto reading = services.read();
    ASSERT_TRUE(reading);
    ASSERT_EQ(reading->size(), 2u);
    EXPECT_EQ(reading->at(1).state, VPNConnectionState::connecting);

    call(bus, activePath, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Set"),
         {QStringLiteral("org.freedesktop.NetworkManager.Connection.Active"),
          QStringLiteral("State"), QVariant::fromValue(QDBusVariant(2u))});
    reading = services.read();
    ASSERT_TRUE(reading);
    EXPECT_EQ(reading->at(1).state, VPNConnectionState::connected);
    EXPECT_EQ(reading->at(0).state, VPNConnectionState::off);
}

TEST(NetworkManagerVpnServices, UnreadableWithoutNetworkManager) {
    PrivateSessionBus bus;
    ASSERT_TRUE(bus.isRunning()) << bus.errorText().toStdString();
    EXPECT_EQ(NetworkManagerVpnServices(bus.connect()).read(), std::nullopt);
    EXPECT_EQ(NetworkManagerVpnServices(QDBusConnection::systemBus()).read(), std::nullopt);
}

}  // namespace
}  // namespace kestrow
