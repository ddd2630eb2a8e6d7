// The power and idle adapters against python3-dbusmock services on private buses, and the
// kernel's power-supply folder as fake trees.
#include <QDBusMessage>
#include <QDBusVariant>

#include <gtest/gtest.h>

#include "platform/linux/session_idle_time.h"
#include "platform/linux/upower_power_source.h"
#include "private_session_bus.h"
#include "support/temp_folder.h"

namespace kestrow {
namespace {

namespace fs = std::filesystem;
using kestrow::testing::PrivateSessionBus;

const QString kMock = QStringLiteral("org.freedesktop.DBus.Mock");

// A folder laid out like /sys/class/power_supply: name → attribute → value.
class PowerSupplies {
public:
    void add(const std::string& name, std::map<std::string, std::string> attributes) {
        for (const auto& [attribute, value] : attributes)
            folder_.write(name + "/" + attribute, value + "\n");
    }
    const fs::path& path() const { return folder_.path(); }

private:
    testing::TempFolder folder_;
};

bool call(QDBusConnection connection, QDBusMessage message) {
    const QDBusMessage reply = connection.call(message);
    EXPECT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
    return reply.type() == QDBusMessage::ReplyMessage;
}

TEST(UPowerPowerSource, FollowsOnBatteryWhenUPowerAnswers) {
    PrivateSessionBus bus;  // stands in for the system bus
    ASSERT_TRUE(bus.isRunning()) << bus.errorText().toStdString();
    ASSERT_TRUE(bus.startMock({"-t", "upower", "-p", R"({"OnBattery": true})"},
                              QStringLiteral("org.freedesktop.UPower")))
        << bus.errorText().toStdString();
    // The kernel would say mains; UPower's word wins while it answers.
    PowerSupplies kernel;
    kernel.add("AC", {{"type", "Mains"}, {"online", "1"}});
    UPowerPowerSource power(bus.connect(), kernel.path());
    EXPECT_EQ(power.onMainsPower(), false);

    auto set = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.UPower"), QStringLiteral("/org/freedesktop/UPower"),
        QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Set"));
    set << QStringLiteral("org.freedesktop.UPower") << QStringLiteral("OnBattery")
        << QVariant::fromValue(QDBusVariant(false));
    ASSERT_TRUE(call(bus.connect(), set));
    EXPECT_EQ(power.onMainsPower(), true);

    // A property of the wrong type is no answer: the kernel's counts.
    set = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.UPower"), QStringLiteral("/org/freedesktop/UPower"),
        QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Set"));
    set << QStringLiteral("org.freedesktop.UPower") << QStringLiteral("OnBattery")
        << QVariant::fromValue(QDBusVariant(QStringLiteral("yes")));
    ASSERT_TRUE(call(bus.connect(), set));
    PowerSupplies onBattery;
    onBattery.add("BAT0", {{"type", "Battery"}, {"status", "Discharging"}});
    EXPECT_EQ(UPowerPowerSource(bus.connect(), onBattery.path()).onMainsPower(), false);
}

TEST(UPowerPowerSource, WithoutUPowerTheKernelDecides) {
    PrivateSessionBus bus;
    ASSERT_TRUE(bus.isRunning()) << bus.errorText().toStdString();
    PowerSupplies battery;
    battery.add("BAT0", {{"type", "Battery"}, {"status", "Discharging"}});
    EXPECT_EQ(UPowerPowerSource(bus.connect(), battery.path()).onMainsPower(), false);
    // No system bus at all (the test environment points it nowhere).
    EXPECT_EQ(UPowerPowerSource(QDBusConnection::systemBus(), battery.path()).onMainsPower(),
              false);
}

TEST(UPowerPowerSource, KernelPowerSupplies) {
    struct Case {
        const char* name;
        std::map<std::string, std::map<std::string, std::string>> supplies;
        std::optional<bool> expected;
    };
    const std::vector<Case> cases{
        {"laptop on its charger",
         {{"AC", {{"type", "Mains"}, {"online", "1"}}},
          {"BAT0", {{"type", "Battery"}, {"status", "Discharging"}}}},
         true},
        {"laptop unplugged",
         {{"AC", {{"type", "Mains"}, {"online", "0"}}},
          {"BAT0", {{"type", "Battery"}, {"status", "Discharging"}}}},
         false},
        {"battery only, discharging",
         {{"BAT1", {{"type", "Battery"}, {"status", "Discharging"}}}},
         false},
        {"mains offline, no battery", {{"AC", {{"type", "Mains"}, {"online", "0"}}}}, false},
        {"USB-C charger, mains offline",
         {{"AC", {{"type", "Mains"}, {"online", "0"}}},
          {"ucsi", {{"type", "USB"}, {"online", "1"}}},
          {"BAT0", {{"type", "Battery"}, {"status", "Charging"}}}},
         true},
        {"full battery, no mains reported",
         {{"BAT0", {{"type", "Battery"}, {"status", "Full"}}}},
         true},
        {"desktop with a wireless mouse",
         {{"hidpp_battery_0",
           {{"type", "Battery"}, {"scope", "Device"}, {"status", "Discharging"}}}},
         true},
        {"battery that says nothing clear",
         {{"BAT0", {{"type", "Battery"}, {"status", "Unknown"}}}},
         std::nullopt},
        {"desktop", {}, true},
    };
    for (const Case& c : cases) {
        PowerSupplies kernel;
        for (const auto& [name, attributes] : c.supplies) kernel.add(name, attributes);
        EXPECT_EQ(UPowerPowerSource::fromPowerSupplies(kernel.path()), c.expected) << c.name;
    }
    EXPECT_EQ(UPowerPowerSource::fromPowerSupplies("/nonexistent/power_supply"), true);
}

// Starts a bare mock object and gives it one method answering `code`.
bool startIdleMock(PrivateSessionBus& bus, const QString& service, const QString& path,
                   const QString& interface, const QString& method, const QString& signature,
                   const QString& code) {
    if (!bus.startMock({service, path, interface}, service)) return false;
    auto add = QDBusMessage::createMethodCall(service, path, kMock, QStringLiteral("AddMethod"));
    add << interface << method << QString() << signature << code;
    return call(bus.connect(), add);
}

bool startMutter(PrivateSessionBus& bus, const QString& signature, const QString& code) {
    const QString name = QStringLiteral("org.gnome.Mutter.IdleMonitor");
    return startIdleMock(bus, name, QStringLiteral("/org/gnome/Mutter/IdleMonitor/Core"), name,
                         QStringLiteral("GetIdletime"), signature, code);
}

bool startScreenSaver(PrivateSessionBus& bus, const QString& code) {
    const QString name = QStringLiteral("org.freedesktop.ScreenSaver");
    return startIdleMock(bus, name, QStringLiteral("/org/freedesktop/ScreenSaver"), name,
                         QStringLiteral("GetSessionIdleTime"), QStringLiteral("u"), code);
}

TEST(SessionIdleTime, PrefersTheIdleMonitorsMillisecondsOverTheScreenSaversSeconds) {
    PrivateSessionBus bus;
    ASSERT_TRUE(bus.isRunning()) << bus.errorText().toStdString();
    SessionIdleTime idle(bus.connect());
    EXPECT_EQ(idle.secondsSinceLastInput(), std::nullopt) << "no desktop service answers";

    ASSERT_TRUE(startScreenSaver(bus, QStringLiteral("ret = 42"))) << bus.errorText().toStdString();
    EXPECT_EQ(idle.secondsSinceLastInput(), 42.0);

    ASSERT_TRUE(startMutter(bus, QStringLiteral("t"), QStringLiteral("ret = 700500")))
        << bus.errorText().toStdString();
    EXPECT_EQ(idle.secondsSinceLastInput(), 700.5);

    EXPECT_EQ(SessionIdleTime(QDBusConnection::sessionBus()).secondsSinceLastInput(), std::nullopt)
        << "no session bus at all";
}

TEST(SessionIdleTime, AnAnswerOfTheWrongTypeIsPassedOver) {
    PrivateSessionBus bus;
    ASSERT_TRUE(bus.isRunning()) << bus.errorText().toStdString();
    ASSERT_TRUE(startMutter(bus, QStringLiteral("s"), QStringLiteral("ret = 'soon'")))
        << bus.errorText().toStdString();
    SessionIdleTime idle(bus.connect());
    EXPECT_EQ(idle.secondsSinceLastInput(), std::nullopt);
    ASSERT_TRUE(startScreenSaver(bus, QStringLiteral("ret = 900")))
        << bus.errorText().toStdString();
    EXPECT_EQ(idle.secondsSinceLastInput(), 900.0);
}

}  // namespace
}  // namespace kestrow
