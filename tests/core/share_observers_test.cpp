// The wake observer and the VPN monitor in virtual time, with the system's power events and VPN
// list played by the test.
#include <gtest/gtest.h>

#include "shares/vpn_monitor.h"
#include "shares/wake_observer.h"
#include "support/recording_log_sink.h"
#include "support/virtual_scheduler.h"

namespace kestrow {
namespace {

using testing::RecordingLogSink;

class PlayedPowerEvents final : public SystemPowerEvents {
public:
    bool start(std::function<void(WallTime)> willSleep, std::function<void()> woke) override {
        willSleep_ = std::move(willSleep);
        woke_ = std::move(woke);
        ++starts;
        return subscribable;
    }
    void stop() override { ++stops; }
    std::optional<std::uint64_t> wakeCapabilities() override { return capabilities; }
    void wake() { woke_(); }
    void sleep(WallTime at) { willSleep_(at); }

    bool subscribable = true;
    std::optional<std::uint64_t> capabilities;
    int starts = 0;
    int stops = 0;

private:
    std::function<void(WallTime)> willSleep_;
    std::function<void()> woke_;
};

TEST(WakeObserver, ABurstOfWakesGivesOnePassAfterItSettles) {
    VirtualScheduler clock;
    PlayedPowerEvents events;
    RecordingLogSink log;
    int passes = 0;
    std::vector<WallTime> sleeps;
    WakeObserver observer(
        events, clock.mainExecutor(), log, [&] { ++passes; },
        [&](WallTime at) { sleeps.push_back(at); });
    ASSERT_TRUE(observer.start());
    EXPECT_TRUE(observer.start());
    EXPECT_EQ(events.starts, 1);

    events.wake();
    clock.advance(1.0);
    events.wake();
    clock.advance(2.9);
    EXPECT_EQ(passes, 0);  // 3 s after the first wake, but only 2.9 s after the second
    clock.advance(0.1);
    EXPECT_EQ(passes, 1);
    clock.advance(60.0);
    EXPECT_EQ(passes, 1);
    EXPECT_EQ(
        log.messages(),
        std::vector<std::string>{"Wake observer: full wake (capabilities unknown); auto-mounting"});

    // Sleep is handed on with its time, and the shares do nothing about it.
    events.sleep(clock.now());
    EXPECT_EQ(sleeps, std::vector<WallTime>{clock.now()});
    EXPECT_EQ(passes, 1);

    // Capabilities without the graphics bit: a dark wake, no pass. With it: a full one.
    events.capabilities = 0x1;
    events.wake();
    clock.advance(3.0);
    EXPECT_EQ(passes, 1);
    EXPECT_TRUE(log.contains("Wake observer: dark wake (capabilities 1); no auto-mount"));
    events.capabilities = 0x6;
    events.wake();
    clock.advance(3.0);
    EXPECT_EQ(passes, 2);
    EXPECT_TRUE(log.contains("Wake observer: full wake (capabilities 6); auto-mounting"));

    // Stopping drops a pass that has not run yet.
    events.wake();
    observer.stop();
    clock.advance(10.0);
    EXPECT_EQ(passes, 2);
    EXPECT_EQ(events.stops, 1);
}

TEST(WakeObserver, ReportsWhenPowerEventsCannotBeHad) {
    VirtualScheduler clock;
    PlayedPowerEvents events;
    events.subscribable = false;
    RecordingLogSink log;
    WakeObserver observer(events, clock.mainExecutor(), log, [] {});
    EXPECT_FALSE(observer.start());
    EXPECT_FALSE(log.messages().empty());
}

class PlayedVpnServices final : public VpnServices {
public:
    std::optional<std::vector<VPNService>> read() override {
        ++reads;
        return reading;
    }
    std::optional<std::vector<VPNService>> reading;
    int reads = 0;
};

VPNService vpn(std::string id, std::string name, VPNConnectionState state) {
    return {std::move(id), std::move(name), state};
}

struct VpnRig {
    VirtualScheduler clock;
    PlayedVpnServices source;
    RecordingLogSink log;
    int passes = 0;
    std::vector<std::string> linked{"uuid-office"};
    VPNMonitor monitor{source, clock.makeSerialQueue(),   clock.mainExecutor(),
                       log,    [this] { return linked; }, [this] { ++passes; }};
};

TEST(VPNMonitor, PollsEveryFiveSecondsAndPublishes) {
    VpnRig rig;
    rig.source.reading = std::vector{vpn("uuid-office", "Office", VPNConnectionState::off)};
    std::vector<VPNMonitor::ServiceList> seen;
    auto connection =
        rig.monitor.services().observe([&](const auto& list) { seen.push_back(list); });
    EXPECT_EQ(rig.monitor.services().get(), std::nullopt);
    rig.monitor.start();
    rig.monitor.start();
    rig.clock.runPending();
    EXPECT_EQ(rig.source.reads, 1);
    EXPECT_EQ(rig.monitor.services().get(), rig.source.reading);
    rig.clock.advance(12.0);
    EXPECT_EQ(rig.source.reads, 3);  // at 0, 5 and 10 s; a second start added nothing
    rig.monitor.refresh();
    rig.clock.runPending();
    EXPECT_EQ(rig.source.reads, 4);
    EXPECT_EQ(seen.size(), 1u);  // unchanged readings wake nobody

    // An unreadable configuration is published as "no list".
    rig.source.reading.reset();
    rig.clock.advance(5.0);
    EXPECT_EQ(rig.monitor.services().get(), std::nullopt);
    EXPECT_EQ(rig.passes, 0);

    rig.monitor.stop();
    const int reads = rig.source.reads;
    rig.clock.advance(30.0);
    EXPECT_EQ(rig.source.reads, reads);
}

TEST(VPNMonitor, ALinkedVPNThatConnectsGivesOnePass) {
    VpnRig rig;
    rig.source.reading = std::vector{vpn("uuid-office", "Office", VPNConnectionState::connecting),
                                     vpn("uuid-home", "Home", VPNConnectionState::connecting)};
    rig.monitor.start();
    rig.clock.runPending();
    EXPECT_EQ(rig.passes, 0);

    // The unlinked one connects: nothing.
    rig.source.reading = std::vector{vpn("uuid-office", "Office", VPNConnectionState::connecting),
                                     vpn("uuid-home", "Home", VPNConnectionState::connected)};
    rig.clock.advance(5.0);
    EXPECT_EQ(rig.passes, 0);
    EXPECT_TRUE(rig.log.messages().empty());

    // The linked one connects: one pass and one line; staying connected adds nothing.
    rig.source.reading = std::vector{vpn("uuid-office", "Office", VPNConnectionState::connected),
                                     vpn("uuid-home", "Home", VPNConnectionState::connected)};
    rig.clock.advance(5.0);
    EXPECT_EQ(rig.passes, 1);
    rig.clock.advance(20.0);
    EXPECT_EQ(rig.passes, 1);
    EXPECT_EQ(rig.log.messages(),
              std::vector<std::string>{"VPN Office connected; auto-mount pass"});

    // Two linked VPNs connecting in one reading still give a single pass.
    rig.linked = {"uuid-office", "uuid-home"};
    rig.source.reading = std::vector{vpn("uuid-office", "Office", VPNConnectionState::off),
                                     vpn("uuid-home", "Home", VPNConnectionState::off)};
    rig.clock.advance(5.0);
    rig.source.reading = std::vector{vpn("uuid-office", "Office", VPNConnectionState::connected),
                                     vpn("uuid-home", "Home", VPNConnectionState::connected)};
    rig.clock.advance(5.0);
    EXPECT_EQ(rig.passes, 2);
    EXPECT_EQ(rig.log.messages().size(), 3u);
}

TEST(VPNMonitor, AVPNAlreadyConnectedAtTheFirstReadingCounts) {
    VpnRig rig;
    rig.source.reading = std::vector{vpn("uuid-office", "Office", VPNConnectionState::connected)};
    rig.monitor.start();
    rig.clock.runPending();
    EXPECT_EQ(rig.passes, 1);
}

}  // namespace
}  // namespace kestrow
