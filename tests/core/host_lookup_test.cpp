// The shared name look-up with real threads: a resolver that blocks until the test lets it go
// shows how many look-ups really ran and what waiting callers get.
#include "shares/host_lookup.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <future>
#include <mutex>

#include "support/serial_queue.h"

namespace kestrow {
namespace {

using Addresses = std::set<std::string>;

class GatedResolver final : public HostResolver {
public:
    std::optional<Addresses> resolve(const std::string& host) override {
        std::unique_lock lock(mutex_);
        ++calls_;
        asked_.notify_all();
        gate_.wait(lock, [&] { return open_; });
        if (host == "gone.example") return std::nullopt;
        return Addresses{"192.0.2.1", "2001:db8::1"};
    }
    void open() {
        std::lock_guard lock(mutex_);
        open_ = true;
        gate_.notify_all();
    }
    bool waitForCalls(int n) {
        std::unique_lock lock(mutex_);
        return asked_.wait_for(lock, std::chrono::seconds(5), [&] { return calls_ >= n; });
    }
    int calls() {
        std::lock_guard lock(mutex_);
        return calls_;
    }

private:
    std::mutex mutex_;
    std::condition_variable gate_;
    std::condition_variable asked_;
    bool open_ = false;
    int calls_ = 0;
};

// Only `monotonic` matters to the cache; the test moves it by hand.
class HandClock final : public Clock {
public:
    WallTime now() const override { return {}; }
    double monotonic() const override { return seconds.load(); }
    double secondsSinceBoot() const override { return seconds.load(); }
    bool sleep(double s, std::stop_token) override {
        seconds = seconds + s;
        return true;
    }
    std::atomic<double> seconds{100.0};
};

TEST(HostLookup, ConcurrentCallersShareOneLookUp) {
    GatedResolver resolver;
    HandClock clock;
    SerialQueue background("lookup");
    HostLookup lookup(resolver, clock, background);
    auto first = std::async(std::launch::async, [&] { return lookup.resolve("NAS.example", 5.0); });
    ASSERT_TRUE(resolver.waitForCalls(1));
    auto second =
        std::async(std::launch::async, [&] { return lookup.resolve("nas.example", 5.0); });
    // The second caller must be waiting on the first look-up, not running its own.
    EXPECT_EQ(second.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
    resolver.open();
    const Addresses expected{"192.0.2.1", "2001:db8::1"};
    EXPECT_EQ(first.get(), expected);
    EXPECT_EQ(second.get(), expected);
    EXPECT_EQ(resolver.calls(), 1);
}

TEST(HostLookup, RemembersAnswersAndFailuresForAMinute) {
    GatedResolver resolver;
    resolver.open();
    HandClock clock;
    SerialQueue background("lookup");
    HostLookup lookup(resolver, clock, background);
    EXPECT_TRUE(lookup.resolve("nas.example", 5.0));
    EXPECT_EQ(lookup.resolve("gone.example", 5.0), std::nullopt);
    EXPECT_EQ(resolver.calls(), 2);
    clock.seconds = clock.seconds + 59.0;
    EXPECT_TRUE(lookup.resolve("nas.example", 5.0));
    EXPECT_EQ(lookup.resolve("gone.example", 5.0), std::nullopt);  // "no answer" is kept too
    EXPECT_EQ(resolver.calls(), 2);
    clock.seconds = clock.seconds + 1.5;
    EXPECT_TRUE(lookup.resolve("nas.example", 5.0));
    EXPECT_EQ(resolver.calls(), 3);
}

TEST(HostLookup, AWaitEndsAtItsTimeLimitAndTheLateAnswerIsKept) {
    GatedResolver resolver;
    HandClock clock;
    SerialQueue background("lookup");
    HostLookup lookup(resolver, clock, background);
    const auto started = std::chrono::steady_clock::now();
    EXPECT_EQ(lookup.resolve("nas.example", 0.2), std::nullopt);
    ASSERT_TRUE(resolver.waitForCalls(1));
    // A caller joining the hung look-up waits its own limit, and starts nothing.
    EXPECT_EQ(lookup.resolve("nas.example", 0.1), std::nullopt);
    const double waited =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    EXPECT_GE(waited, 0.3);
    EXPECT_LT(waited, 2.0);
    EXPECT_EQ(resolver.calls(), 1);
    resolver.open();
    // The answer lands in the cache when it comes, for whoever asks next.
    EXPECT_EQ(lookup.resolve("nas.example", 5.0), (Addresses{"192.0.2.1", "2001:db8::1"}));
    EXPECT_EQ(resolver.calls(), 1);
}

}  // namespace
}  // namespace kestrow
