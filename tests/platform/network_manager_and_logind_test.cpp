// The wake, network and VPN adapters against python3-dbusmock's logind and NetworkManager on a
// private bus standing in for the system bus.
#include <QCoreApplication>
#include <QDBusMessage>
#include <QElapsedTimer>
#include <QProcess>

#include <gtest/gtest.h>

#include "platform/linux/shares/logind_power_events.h"
#include "platform/linux/shares/network_manager_path_monitor.h"
#include "platform/linux/shares/network_manager_vpn_services.h"
#include "platform/linux/system_clock.h"
#include "private_session_bus.h"

namespace kestrow {
namespace {

using kestrow::testing::PrivateSessionBus;

const QString kMock = QStringLiteral("org.freedesktop.DBus.Mock");
const QString kNetworkManager = QStringLiteral("org.freedesktop.NetworkManager");

bool waitFor(const std::function<bool()>& done, int milliseconds = 5000) {
    QElapsedTimer timer;
    timer.start();
    while (!done() && timer.elapsed() < milliseconds)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    return done();
}

// gdbus builds the nested settings dictionaries that QtDBus would need registered types for.
void gdbusCall(const PrivateSessionBus& bus, const QString& path, const QString& method,
               const QStringList& arguments) {
    QProcess gdbus;
    gdbus.start(QStringLiteral("gdbus"),
                QStringList{"call", "--address", bus.address(), "--dest", kNetworkManager,
                            "--object-path", path, "--method", method} +
                    arguments);
    ASSERT_TRUE(gdbus.waitForFinished(10000));
    ASSERT_EQ(gdbus.exitCode(), 0) << gdbus.readAllStandardError().toStdString();
}

TEST(LogindPowerEvents, PrepareForSleepReachesSleepAndWake) {
    PrivateSessionBus bus;
    ASSERT_TRUE(bus.isRunning()) << bus.errorText().toStdString();
    ASSERT_TRUE(bus.startMock({"-t", "logind"}, QStringLiteral("org.freedesktop.login1")))
        << bus.errorText().toStdString();
    SystemClock clock;
    LogindPowerEvents events(bus.connect(), clock);
    int sleeps = 0;
    int wakes = 0;
    ASSERT_TRUE(events.start([&](WallTime) { ++sleeps; }, [&] { ++wakes; }));
    EXPECT_FALSE(events.wakeCapabilities());

    const auto emit = [&](bool sleeping) {
        auto message = QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.login1"),
                                                      QStringLiteral("/org/freedesktop/login1"),
                                                      kMock, QStringLiteral("EmitSignal"));
        message << QStringLiteral("org.freedesktop.login1.Manager")
                << QStringLiteral("PrepareForSleep") << QStringLiteral("b")
                << QVariant(QVariantList{sleeping});
        const QDBusMessage reply = bus.connect().call(message);
        ASSERT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
    };
    emit(true);
    ASSERT_TRUE(waitFor([&] { return sleeps == 1; }));
    emit(false);
    ASSERT_TRUE(waitFor([&] { return wakes == 1; }));
    EXPECT_EQ(sleeps, 1);

    // After stop nothing more arrives.
    events.stop();
    emit(false);
    waitFor([] { return false; }, 300);
    EXPECT_EQ(wakes, 1);
}

TEST(NetworkManagerAdapters, VpnStatesAndTheNetworkPathFollowNetworkManager) {
    PrivateSessionBus bus;
    ASSERT_TRUE(bus.isRunning()) << bus.errorText().toStdString();

    // Before NetworkManager is there: VPNs cannot be read, the network counts as there.
    NetworkManagerVpnServices vpns(bus.connect(), 1000);
    EXPECT_FALSE(vpns.read());
    NetworkManagerPathMonitor path(bus.connect());
    std::vector<bool> seen;
    path.start([&](bool satisfied) { seen.push_back(satisfied); });
    ASSERT_TRUE(waitFor([&] { return !seen.empty(); }));
    EXPECT_TRUE(seen.back());

    ASSERT_TRUE(bus.startMock({"-t", "networkmanager"}, kNetworkManager))
        << bus.errorText().toStdString();
    const QString settings = QStringLiteral("/org/freedesktop/NetworkManager/Settings");
    gdbusCall(bus, settings, "org.freedesktop.NetworkManager.Settings.AddConnection",
              {"{'connection': {'type': <'vpn'>, 'id': <'Office VPN'>, 'uuid': <'u-office'>}}"});
    gdbusCall(bus, settings, "org.freedesktop.NetworkManager.Settings.AddConnection",
              {"{'connection': {'type': <'802-3-ethernet'>, 'id': <'Wired'>, 'uuid': <'u-eth'>}}"});
    gdbusCall(bus, settings, "org.freedesktop.NetworkManager.Settings.AddConnection",
              {"{'connection': {'type': <'wireguard'>, 'id': <'Home WG'>, 'uuid': <'u-wg'>}}"});

    auto listed = vpns.read();
    ASSERT_TRUE(listed);
    ASSERT_EQ(listed->size(), 2u);  // the wired connection is not a VPN
    EXPECT_EQ((*listed)[0], (VPNService{"u-wg", "Home WG", VPNConnectionState::off}));
    EXPECT_EQ((*listed)[1], (VPNService{"u-office", "Office VPN", VPNConnectionState::off}));

    gdbusCall(bus, "/org/freedesktop/NetworkManager",
              "org.freedesktop.DBus.Mock.AddActiveConnection",
              {"@as []", "/org/freedesktop/NetworkManager/Settings/0", "/", "vpn0", "1"});
    listed = vpns.read();
    ASSERT_TRUE(listed);
    EXPECT_EQ((*listed)[1].state, VPNConnectionState::connecting);

    // The monitor now hears NetworkManager's own state: disconnected, then connected locally.
    seen.clear();
    gdbusCall(bus, "/org/freedesktop/NetworkManager",
              "org.freedesktop.DBus.Mock.SetGlobalConnectionState", {"20"});
    ASSERT_TRUE(waitFor([&] { return !seen.empty() && !seen.back(); }));
    gdbusCall(bus, "/org/freedesktop/NetworkManager",
              "org.freedesktop.DBus.Mock.SetGlobalConnectionState", {"50"});
    ASSERT_TRUE(waitFor([&] { return seen.size() >= 2 && seen.back(); }));
    // A repeated state is no change.
    gdbusCall(bus, "/org/freedesktop/NetworkManager",
              "org.freedesktop.DBus.Mock.SetGlobalConnectionState", {"70"});
    waitFor([] { return false; }, 300);
    EXPECT_EQ(seen, (std::vector<bool>{false, true}));
    path.stop();
}

}  // namespace
}  // namespace kestrow
