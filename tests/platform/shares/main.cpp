#include <QCoreApplication>

#include <cstring>

#include <gtest/gtest.h>

#include "share_test_world.h"

namespace kestrow::testing {
namespace {

ShareWorld world;
std::optional<std::string> problem = "the share world was not entered";

}  // namespace

ShareWorld& shareWorld() {
    return world;
}
const std::optional<std::string>& shareWorldProblem() {
    return problem;
}

}  // namespace kestrow::testing

int main(int argc, char** argv) {
    bool listing = false;
    for (int i = 1; i < argc; ++i)
        listing = listing || std::strcmp(argv[i], "--gtest_list_tests") == 0;
    // Namespaces can only be entered while this process has one thread: before Qt or GLib start.
    ::testing::InitGoogleTest(&argc, argv);
    // Listing the tests starts nothing (no Qt either: it would make a runtime folder in /tmp).
    if (listing) return RUN_ALL_TESTS();
    kestrow::testing::problem = kestrow::testing::world.enter();
    int result = 0;
    {
        QCoreApplication app(argc, argv);
        result = RUN_ALL_TESTS();
    }
    kestrow::testing::world.leave();
    return result;
}
