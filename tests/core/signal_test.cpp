#include "support/signal.h"
#include "support/observable.h"

#include <gtest/gtest.h>

#include <optional>
#include <vector>

namespace kestrow {
namespace {

TEST(Signal, ConnectionsEndWithTheirOwnersEvenDuringAnEmission) {
    Signal<int> signal;
    std::vector<int> seen;
    auto first = signal.connect([&](int v) { seen.push_back(v); });
    std::optional<Signal<int>::Connection> second;
    second = signal.connect([&](int v) { seen.push_back(v * 10); });
    {
        auto scoped = signal.connect([&](int v) { seen.push_back(v * 100); });
        signal.emit(1);
    }
    EXPECT_EQ(seen, (std::vector<int>{1, 10, 100}));

    // A slot that disconnects a later slot during the same emission stops it from running.
    seen.clear();
    auto killer = signal.connect([&](int) { second.reset(); });
    auto last = signal.connect([&](int v) { seen.push_back(-v); });
    first.disconnect();
    signal.emit(2);
    EXPECT_EQ(seen, (std::vector<int>{20, -2}));  // `second` ran before `killer` removed it
    seen.clear();
    signal.emit(3);
    EXPECT_EQ(seen, (std::vector<int>{-3}));
    EXPECT_FALSE(first.connected());
}

TEST(Observable, PublishesRealChangesOnly) {
    Observable<bool> visible(true);
    int notified = 0;
    auto connection = visible.observe([&](const bool&) { ++notified; });
    EXPECT_FALSE(visible.set(true));
    EXPECT_TRUE(visible.set(false));
    EXPECT_FALSE(visible.set(false));
    EXPECT_EQ(notified, 1);
    EXPECT_FALSE(visible.get());
}

}  // namespace
}  // namespace kestrow
