// The reachability rules in virtual time: a scripted prober and browser stand in for the network,
// and every wait moves the virtual clock, so the deadlines are checked to the slice.
#include "shares/reachability.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>

#include "support/recording_log_sink.h"
#include "support/virtual_scheduler.h"

namespace kestrow {
namespace {

using testing::RecordingLogSink;

// A silent server costs the whole probe time limit; a refused or answered probe a moment.
enum class Answer { yes, silent, refused, denied };

class ScriptedProber final : public TcpProber {
public:
    explicit ScriptedProber(Clock& clock) : clock_(clock) {}
    // `rule(n)` answers the n-th probe (from 0) of "host:port"; unknown targets stay silent.
    void on(const std::string& target, std::function<Answer(int)> rule) { rules_[target] = rule; }
    TcpProbeResult probe(const std::string& host, std::uint16_t port, double timeout) override {
        const std::string target = host + ":" + std::to_string(port);
        calls.push_back(target);
        timeouts.push_back(timeout);
        const auto rule = rules_.find(target);
        const Answer answer =
            rule == rules_.end() ? Answer::silent : rule->second(counts_[target]++);
        switch (answer) {
            case Answer::yes:
                clock_.sleep(0.01);
                return {true, false};
            case Answer::silent:
                clock_.sleep(timeout);
                return {};
            case Answer::refused:
                clock_.sleep(0.001);
                return {};
            case Answer::denied:
                clock_.sleep(0.001);
                return {false, true};
        }
        return {};
    }
    std::vector<std::string> calls;
    std::vector<double> timeouts;

private:
    Clock& clock_;
    std::map<std::string, std::function<Answer(int)>> rules_;
    std::map<std::string, int> counts_;
};

class ScriptedBrowser final : public ServiceBrowser {
public:
    explicit ScriptedBrowser(Clock& clock) : clock_(clock) {}
    std::optional<std::string> find(const std::string& baseName, double timeout) override {
        asked.push_back(baseName);
        const auto answer = rule ? rule(static_cast<int>(asked.size()) - 1) : std::nullopt;
        clock_.sleep(answer ? std::min(0.2, timeout) : timeout);
        return answer;
    }
    std::function<std::optional<std::string>(int)> rule;
    std::vector<std::string> asked;

private:
    Clock& clock_;
};

SMBShare smb(const std::string& host) {
    SMBShare share;
    share.id = "0F6C1B2A-0000-4000-8000-000000000001";
    share.name = "Office";
    share.host = host;
    share.shareName = "data";
    return share;
}

Answer always(int) {
    return Answer::yes;
}

struct Rig {
    VirtualScheduler clock;
    ScriptedProber prober{clock};
    ScriptedBrowser browser{clock};
    RecordingLogSink log;
    Reachability reach{prober, browser, clock, log};

    std::optional<std::string> wait(
        const SMBShare& share, std::function<bool()> keep = [] { return true; }) {
        return reach.waitForConnectionAvailability(share, keep);
    }
};

TEST(Reachability, OnlyConsecutiveAnswersCountAsStable) {
    {
        // Answers once, then never again: not stable, and the attempt ends at its deadline.
        Rig rig;
        rig.prober.on("nas.example:445",
                      [](int n) { return n == 0 ? Answer::yes : Answer::refused; });
        EXPECT_EQ(rig.wait(smb("nas.example")), std::nullopt);
        EXPECT_GT(rig.prober.calls.size(), 10u);
        EXPECT_NEAR(rig.clock.monotonic(), Reachability::availabilityBudget, 0.06);
    }
    {
        // Answer, miss, answer, answer: the run of two is stable; the final check asks once more.
        Rig rig;
        rig.prober.on("nas.example:445",
                      [](int n) { return n == 1 ? Answer::refused : Answer::yes; });
        EXPECT_EQ(rig.wait(smb("  nas.example ")), "nas.example");
        EXPECT_EQ(rig.prober.calls.size(), 5u);
        // Two pauses of 0.35 s between the four probes of the choice, one before the final check.
        EXPECT_NEAR(rig.clock.monotonic(), 3 * Reachability::shortRetryInterval + 0.05, 0.02);
        EXPECT_TRUE(rig.browser.asked.empty());
    }
    {
        // An address is probed as it is; a failing final check waits and asks again.
        Rig rig;
        rig.prober.on("192.168.1.20:445",
                      [](int n) { return n == 2 ? Answer::refused : Answer::yes; });
        EXPECT_EQ(rig.wait(smb("192.168.1.20")), "192.168.1.20");
        EXPECT_EQ(rig.prober.calls.size(), 4u);
    }
}

TEST(Reachability, BonjourNamesTryDotLocalFirstThenTheAnnouncedAddress) {
    {
        // Only the browser sees the server: the address it resolved to is the mount host.
        Rig rig;
        rig.browser.rule = [](int) { return std::optional<std::string>("10.200.0.1"); };
        rig.prober.on("10.200.0.1:445", always);
        EXPECT_EQ(rig.wait(smb("Office NAS._smb._tcp.local")), "10.200.0.1");
        ASSERT_GE(rig.prober.calls.size(), 3u);
        EXPECT_EQ(rig.prober.calls[0], "Office NAS.local:445");
        EXPECT_EQ(rig.prober.calls[1], "Office NAS.local:445");  // two rounds, not one
        EXPECT_EQ(rig.prober.calls.back(), "10.200.0.1:445");
        // Seen twice to be stable, and once more by the final check.
        EXPECT_EQ(rig.browser.asked,
                  (std::vector<std::string>{"Office NAS", "Office NAS", "Office NAS"}));
    }
    {
        // The ".local" name answers: it is used, and the browser still has to see the base.
        Rig rig;
        rig.browser.rule = [](int) { return std::optional<std::string>("10.200.0.1"); };
        rig.prober.on("nas.local:445", always);
        EXPECT_EQ(rig.wait(smb("nas.local")), "nas.local");
        EXPECT_EQ(rig.browser.asked, std::vector<std::string>{"nas"});
    }
    {
        // Announced once and then gone: never stable; the attempt gives up after its Bonjour
        // rounds, well inside its deadline.
        Rig rig;
        rig.browser.rule = [](int n) {
            return n == 0 ? std::optional<std::string>("10.200.0.1") : std::nullopt;
        };
        rig.prober.on("10.200.0.1:445", always);
        EXPECT_EQ(rig.wait(smb("nas.local")), std::nullopt);
        EXPECT_EQ(rig.browser.asked.size(), 1u + Reachability::bonjourCheckCycles);
        EXPECT_LT(rig.clock.monotonic(), Reachability::bonjourAvailabilityBudget);
    }
}

TEST(Reachability, NeverWaitsPastTheDeadline) {
    {
        Rig rig;  // nothing answers, every probe hangs to its limit
        EXPECT_EQ(rig.wait(smb("nas.example")), std::nullopt);
        EXPECT_LE(rig.clock.monotonic(), Reachability::availabilityBudget + 1e-9);
        EXPECT_GT(rig.clock.monotonic(), Reachability::availabilityBudget - 0.1);
        // The last probe is cut to what was left of the budget.
        EXPECT_LT(rig.prober.timeouts.back(), Reachability::connectionReachabilityTimeout);
    }
    {
        Rig rig;  // a Bonjour name with a silent network: browses hang too
        rig.browser.rule = [](int) { return std::optional<std::string>("10.200.0.1"); };
        EXPECT_EQ(rig.wait(smb("nas.local")), std::nullopt);
        EXPECT_LE(rig.clock.monotonic(), Reachability::bonjourAvailabilityBudget + 1e-9);
    }
    {
        // WebDAV probes the port of its scheme, or of a typed URL, and keeps the host as typed.
        Rig rig;
        SMBShare share = smb("dav.example");
        share.connectionProtocol = ShareProtocol::webdav;
        share.webDAVScheme = WebDAVScheme::http;
        rig.prober.on("dav.example:80", always);
        EXPECT_EQ(rig.wait(share), "dav.example");
        share.host = "https://dav.example:8443";
        share.webDAVScheme = WebDAVScheme::https;
        rig.prober.on("dav.example:8443", always);
        EXPECT_EQ(rig.wait(share), "https://dav.example:8443");
        // A port no server can have is unreachable at once, without a probe.
        share.port = 70000;
        const auto probes = rig.prober.calls.size();
        const double before = rig.clock.monotonic();
        EXPECT_EQ(rig.wait(share), std::nullopt);
        EXPECT_EQ(rig.prober.calls.size(), probes);
        EXPECT_EQ(rig.clock.monotonic(), before);
    }
}

TEST(Reachability, StopsAsSoonAsRetryingIsNoLongerWanted) {
    {
        Rig rig;
        EXPECT_EQ(rig.wait(smb("nas.example"), [] { return false; }), std::nullopt);
        EXPECT_TRUE(rig.prober.calls.empty());
        EXPECT_EQ(rig.clock.monotonic(), 0.0);
    }
    {
        // The user disconnects one second in, during a pause: the attempt ends within a slice.
        Rig rig;
        rig.prober.on("nas.example:445", [](int) { return Answer::refused; });
        EXPECT_EQ(rig.wait(smb("nas.example"), [&] { return rig.clock.monotonic() < 1.0; }),
                  std::nullopt);
        EXPECT_LE(rig.clock.monotonic(), 1.0 + Reachability::retrySlice + 0.002);
    }
}

TEST(Reachability, RefusedLocalNetworkAccessEndsTheAttemptWithOneLogLine) {
    Rig rig;
    rig.prober.on("nas.example:445", [](int) { return Answer::denied; });
    EXPECT_EQ(rig.wait(smb("nas.example")), std::nullopt);
    EXPECT_EQ(rig.prober.calls.size(), 1u);
    EXPECT_TRUE(rig.reach.localNetworkDenied());
    EXPECT_EQ(
        rig.log.messages(),
        std::vector<std::string>{"Mounting: Local Network access is denied; not retrying Office"});
    // A plain failure leaves the flag; an answer clears it.
    rig.prober.on("other.example:445", [](int) { return Answer::refused; });
    EXPECT_FALSE(rig.reach.tcpProbe("other.example", 445).reachable);
    EXPECT_TRUE(rig.reach.localNetworkDenied());
    rig.prober.on("other.example:445", always);
    EXPECT_TRUE(rig.reach.tcpProbe("other.example", 445).reachable);
    EXPECT_FALSE(rig.reach.localNetworkDenied());
    // Port 0 is not a port: no probe at all.
    const auto probes = rig.prober.calls.size();
    EXPECT_FALSE(rig.reach.tcpProbe("other.example", 0).reachable);
    EXPECT_EQ(rig.prober.calls.size(), probes);
}

}  // namespace
}  // namespace kestrow
