// logind's PrepareForSleep against python3-dbusmock's logind on a private bus.
#include "platform/linux/shares/logind_power_events.h"

#include <QDBusMessage>

#include <gtest/gtest.h>

#include "private_session_bus.h"
#include "wait_until.h"

namespace kestrow {
namespace {

using kestrow::testing::PrivateSessionBus;
using kestrow::testing::waitUntil;

void emitPrepareForSleep(PrivateSessionBus& bus, bool goingToSleep) {
    auto emit = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.login1"), QStringLiteral("/org/freedesktop/login1"),
        QStringLiteral("org.freedesktop.DBus.Mock"), QStringLiteral("EmitSignal"));
    emit << QStringLiteral("org.freedesktop.login1.Manager") << QStringLiteral("PrepareForSleep")
         << QStringLiteral("b") << QVariantList{goingToSleep};
    const QDBusMessage reply = bus.connect().call(emit);
    ASSERT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
}

TEST(LogindPowerEvents, SleepAndWakeArriveAsTheirOwnCallbacks) {
    PrivateSessionBus bus;  // stands in for the system bus
    ASSERT_TRUE(bus.isRunning()) << bus.errorText().toStdString();
    ASSERT_TRUE(bus.startMock({"-t", "logind"}, QStringLiteral("org.freedesktop.login1")))
        << bus.errorText().toStdString();
    LogindPowerEvents events(bus.connect());
    int sleeps = 0;
    int wakes = 0;
    ASSERT_TRUE(events.start([&](WallTime) { ++sleeps; }, [&] { ++wakes; }));
    EXPECT_EQ(events.wakeCapabilities(), std::nullopt);  // every wake counts as a full one

    emitPrepareForSleep(bus, true);
    ASSERT_TRUE(waitUntil([&] { return sleeps == 1; }));
    EXPECT_EQ(wakes, 0);
    emitPrepareForSleep(bus, false);
    ASSERT_TRUE(waitUntil([&] { return wakes == 1; }));
    EXPECT_EQ(sleeps, 1);

    events.stop();
    emitPrepareForSleep(bus, false);
    QTest::qWait(200);
    EXPECT_EQ(wakes, 1);
}

TEST(LogindPowerEvents, NoBusNoSubscription) {
    LogindPowerEvents events(QDBusConnection::systemBus());  // the test points it nowhere
    EXPECT_FALSE(events.start([](WallTime) {}, [] {}));
}

}  // namespace
}  // namespace kestrow
