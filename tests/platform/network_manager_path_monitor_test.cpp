// NetworkManager's State against python3-dbusmock's networkmanager on a private bus.
#include "platform/linux/shares/network_manager_path_monitor.h"

#include <QDBusMessage>
#include <QDBusVariant>

#include <gtest/gtest.h>

#include "private_session_bus.h"
#include "wait_until.h"

namespace kestrow {
namespace {

using kestrow::testing::PrivateSessionBus;
using kestrow::testing::waitUntil;

void setState(PrivateSessionBus& bus, uint state) {
    const QString service = QStringLiteral("org.freedesktop.NetworkManager");
    const QString path = QStringLiteral("/org/freedesktop/NetworkManager");
    auto set = QDBusMessage::createMethodCall(
        service, path, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Set"));
    set << service << QStringLiteral("State") << QVariant::fromValue(QDBusVariant(state));
    ASSERT_EQ(bus.connect().call(set).type(), QDBusMessage::ReplyMessage);
    auto emit = QDBusMessage::createMethodCall(
        service, path, QStringLiteral("org.freedesktop.DBus.Mock"), QStringLiteral("EmitSignal"));
    emit << service << QStringLiteral("StateChanged") << QStringLiteral("u")
         << QVariantList{QVariant::fromValue(state)};
    const QDBusMessage reply = bus.connect().call(emit);
    ASSERT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
}

TEST(NetworkManagerPathMonitor, FollowsTheStateAcrossTheConnectedLocalLine) {
    PrivateSessionBus bus;  // stands in for the system bus
    ASSERT_TRUE(bus.isRunning()) << bus.errorText().toStdString();
    ASSERT_TRUE(
        bus.startMock({"-t", "networkmanager"}, QStringLiteral("org.freedesktop.NetworkManager")))
        << bus.errorText().toStdString();
    setState(bus, 20);  // disconnected
    NetworkManagerPathMonitor monitor(bus.connect());
    std::vector<bool> seen;
    monitor.start([&](bool satisfied) { seen.push_back(satisfied); });
    ASSERT_TRUE(waitUntil([&] { return seen.size() == 1; }));
    EXPECT_EQ(seen.front(), false);

    setState(bus, 50);  // connected-local
    ASSERT_TRUE(waitUntil([&] { return seen.size() == 2; }));
    EXPECT_EQ(seen.back(), true);
    setState(bus, 70);  // still satisfied: no report
    setState(bus, 30);  // disconnecting
    ASSERT_TRUE(waitUntil([&] { return seen.size() == 3; }));
    EXPECT_EQ(seen, (std::vector<bool>{false, true, false}));
    setState(bus, 0);  // unknown counts as there
    ASSERT_TRUE(waitUntil([&] { return seen.size() == 4; }));
    EXPECT_EQ(seen.back(), true);
}

TEST(NetworkManagerPathMonitor, WithoutNetworkManagerTheNetworkCountsAsThere) {
    NetworkManagerPathMonitor monitor(QDBusConnection::systemBus());  // points nowhere in tests
    std::vector<bool> seen;
    monitor.start([&](bool satisfied) { seen.push_back(satisfied); });
    ASSERT_TRUE(waitUntil([&] { return !seen.empty(); }));
    EXPECT_EQ(seen, std::vector<bool>{true});
}

}  // namespace
}  // namespace kestrow
