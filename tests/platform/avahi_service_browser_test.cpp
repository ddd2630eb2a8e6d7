// Avahi's resolver as the share reachability uses it: without Avahi on the bus the answer is
// "not found" at once, never a wait for the whole limit.
#include "platform/linux/shares/avahi_service_browser.h"

#include <gtest/gtest.h>

#include <chrono>

#include "private_session_bus.h"

namespace kestrow {
namespace {

using kestrow::testing::PrivateSessionBus;

TEST(AvahiServiceBrowser, WithoutAvahiNothingIsFoundAtOnce) {
    PrivateSessionBus bus;  // a system bus on which no Avahi runs
    ASSERT_TRUE(bus.isRunning()) << bus.errorText().toStdString();
    AvahiServiceBrowser browser(bus.connect());
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(browser.find("Office NAS", 2.0), std::nullopt);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1000));
    EXPECT_EQ(AvahiServiceBrowser(QDBusConnection::systemBus()).find("nas", 2.0), std::nullopt);
}

}  // namespace
}  // namespace kestrow
