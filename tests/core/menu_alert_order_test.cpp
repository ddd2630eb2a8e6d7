#include "menu/menu_alert.h"

#include <gtest/gtest.h>

namespace kestrow {
namespace {

using K = MenuAlertKind;

TEST(MenuAlertOrder, RanksCollapseToTwoAndKeepTheRaisedOrderWithinARank) {
    const std::vector<K> raised{{K::Retention{}}, {K::Hog{1}}, {K::SettingsAccess{}}};
    const auto collapsed = MenuAlertOrder::split(raised, false);
    EXPECT_EQ(collapsed.shown, (std::vector<K>{{K::SettingsAccess{}}, {K::Hog{1}}}));
    EXPECT_EQ(collapsed.hidden, (std::vector<K>{{K::Retention{}}}));
    EXPECT_EQ(MenuAlertOrder::toggleLabel(collapsed, false), "Show 1 more alert");

    const auto all = MenuAlertOrder::split(raised, true);
    EXPECT_EQ(all.shown.size(), 3u);
    EXPECT_TRUE(all.hidden.empty());
    EXPECT_EQ(MenuAlertOrder::toggleLabel(all, true), "Show fewer alerts");

    // Two of one rank stay as raised, whatever their values.
    const auto hogs = MenuAlertOrder::ordered({{K::Hog{9}}, {K::Space{}}, {K::Hog{2}}});
    EXPECT_EQ(hogs, (std::vector<K>{{K::Hog{9}}, {K::Hog{2}}, {K::Space{}}}));

    // Out of declaration order on purpose: no room on the backup disk outranks no schedule.
    EXPECT_EQ(MenuAlertOrder::ordered({{K::Unscheduled{}},
                                       {K::BackupOutOfSpace{}},
                                       {K::BackupDisk{"Failing"}},
                                       {K::LocalNetwork{}},
                                       {K::BootDisk{"Failing"}}}),
              (std::vector<K>{{K::LocalNetwork{}},
                              {K::BootDisk{"Failing"}},
                              {K::BackupDisk{"Failing"}},
                              {K::BackupOutOfSpace{}},
                              {K::Unscheduled{}}}));

    // One card alone, or two: nothing to show more of or fewer of.
    const auto single = MenuAlertOrder::split({{K::Space{}}}, false);
    EXPECT_EQ(MenuAlertOrder::toggleLabel(single, false), std::nullopt);
    EXPECT_EQ(MenuAlertOrder::toggleLabel(
                  MenuAlertOrder::split({{K::Space{}}, {K::Retention{}}}, true), true),
              std::nullopt);
    EXPECT_EQ(MenuAlertOrder::toggleLabel(
                  MenuAlertOrder::split(
                      {{K::Space{}}, {K::Retention{}}, {K::Hog{0}}, {K::Unscheduled{}}}, false),
                  false),
              "Show 2 more alerts");
}

}  // namespace
}  // namespace kestrow
