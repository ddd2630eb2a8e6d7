#include "platform/linux/termination_signals.h"

#include <unistd.h>

#include <QSignalSpy>

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <memory>

namespace kestrow {
namespace {

std::atomic<int> earlierHandlerCalls{0};
extern "C" void earlierHandler(int) {
    ++earlierHandlerCalls;
}

// Puts a handler of the test's own in place for SIGINT and SIGTERM, and the original ones back
// at the end, so that a signal that slips through never ends the test run.
class TerminationSignalsTest : public ::testing::Test {
protected:
    void SetUp() override {
        struct sigaction action {};
        action.sa_handler = earlierHandler;
        sigemptyset(&action.sa_mask);
        ::sigaction(SIGINT, &action, &originalInt_);
        ::sigaction(SIGTERM, &action, &originalTerm_);
        earlierHandlerCalls = 0;
    }
    void TearDown() override {
        ::sigaction(SIGINT, &originalInt_, nullptr);
        ::sigaction(SIGTERM, &originalTerm_, nullptr);
    }
    static bool handlerIs(int signalNumber, void (*handler)(int)) {
        struct sigaction current {};
        ::sigaction(signalNumber, nullptr, &current);
        return current.sa_handler == handler;
    }

    struct sigaction originalInt_ {};
    struct sigaction originalTerm_ {};
};

TEST_F(TerminationSignalsTest, SignalsArriveOnTheEventLoopWithTheirNumber) {
    auto watcher = std::make_unique<TerminationSignals>();
    QSignalSpy requested(watcher.get(), &TerminationSignals::terminationRequested);

    ASSERT_EQ(::raise(SIGTERM), 0);
    ASSERT_TRUE(requested.wait(5000));
    EXPECT_EQ(requested.takeFirst().at(0).toInt(), SIGTERM);

    // Sent to the process, so any thread may take it.
    ASSERT_EQ(::kill(::getpid(), SIGINT), 0);
    ASSERT_TRUE(requested.count() == 1 || requested.wait(5000));
    EXPECT_EQ(requested.takeFirst().at(0).toInt(), SIGINT);
    EXPECT_EQ(earlierHandlerCalls.load(), 0);

    watcher.reset();
    EXPECT_TRUE(handlerIs(SIGINT, earlierHandler));
    EXPECT_TRUE(handlerIs(SIGTERM, earlierHandler));
    ASSERT_EQ(::raise(SIGTERM), 0);
    EXPECT_EQ(earlierHandlerCalls.load(), 1);
}

}  // namespace
}  // namespace kestrow
