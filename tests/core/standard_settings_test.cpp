#include "app/settings/standard_settings.h"

#include <gtest/gtest.h>

#include "app/settings/preference_accessors.h"
#include "app/settings/settings_keys.h"
#include "app/settings/shared_settings.h"
#include "support/recording_log_sink.h"
#include "support/temp_folder.h"

namespace kestrow {
namespace {

class SettingsRulesTest : public ::testing::Test {
protected:
    testing::TempFolder folder;
    testing::RecordingLogSink sink;
    SettingsStore store{folder / "s.plist", Logger(sink, LogArea::general)};
    StandardSettings standard{store};
    SharedSettings shared{store};
};

TEST_F(SettingsRulesTest, RangeRulesFallBackToTheDefaultAtEachRead) {
    for (const PlistValue& bad :
         {PlistValue(0.0), PlistValue(-2.0), PlistValue(7), PlistValue(5.0001), PlistValue("3")}) {
        store.set(keys::hideIconDelaySeconds, bad);
        EXPECT_EQ(standard.hideIconDelaySeconds(), 1.0);
    }
    store.set(keys::hideIconDelaySeconds, PlistValue(5));
    EXPECT_EQ(standard.hideIconDelaySeconds(), 5.0);
    store.set(keys::hideIconDelaySeconds, PlistValue(0.25));
    EXPECT_EQ(standard.hideIconDelaySeconds(), 0.25);

    for (int hour : {0, 5, -1, 24}) {
        store.set(keys::nightlyBackupStartHour, PlistValue(hour));
        EXPECT_EQ(standard.nightlyBackupStartHour(), 3) << hour;
    }
    for (int hour : {1, 4}) {
        store.set(keys::nightlyBackupStartHour, PlistValue(hour));
        EXPECT_EQ(standard.nightlyBackupStartHour(), hour);
    }
    store.set(keys::nightlyBackupStartHour, PlistValue(true));
    EXPECT_EQ(standard.nightlyBackupStartHour(), 3);

    EXPECT_EQ(shared.protectedThresholdHours(), 24.0);
    store.set(keys::protectedThresholdHours, PlistValue(0.0));
    EXPECT_EQ(shared.protectedThresholdHours(), 24.0);
    store.set(keys::protectedThresholdHours, PlistValue(6));
    EXPECT_EQ(shared.protectedThresholdHours(), 6.0);
}

TEST_F(SettingsRulesTest, BooleansTellAbsentFromFalseAndIgnoreOtherTypes) {
    EXPECT_TRUE(NotificationPreference::isEnabled(store));
    EXPECT_TRUE(KeepAwakePreference::isAuto(store));
    EXPECT_TRUE(HogWatchPreference::isEnabled(store));
    EXPECT_FALSE(CaffeinePreference::enabled(store));
    EXPECT_FALSE(BrowserReclaimPreference::enabled(store));
    EXPECT_FALSE(standard.maintenanceEnabled("npm"));

    store.set(keys::notificationsEnabled, PlistValue(false));
    store.set(keys::hogWatchEnabled, PlistValue(0));  // an integer is not a bool: default holds
    store.set(keys::caffeineEnabled, PlistValue(true));
    store.set(keys::maintenanceEnabled("npm"), PlistValue(true));
    EXPECT_FALSE(NotificationPreference::isEnabled(store));
    EXPECT_TRUE(HogWatchPreference::isEnabled(store));
    EXPECT_TRUE(CaffeinePreference::enabled(store));
    EXPECT_TRUE(standard.maintenanceEnabled("npm"));
    EXPECT_FALSE(standard.maintenanceEnabled("pip"));

    EXPECT_FALSE(shared.destinationReachable());
    store.setOptionalBool(keys::destinationReachable, false);
    EXPECT_EQ(shared.destinationReachable(), false);
}

TEST_F(SettingsRulesTest, CategoriesAndCollectionsKeepOnlyWhatTheyUnderstand) {
    store.set(keys::lastNotifiedProtectionCategory, PlistValue("attention"));
    EXPECT_EQ(standard.lastNotifiedProtectionCategory(), "ok");
    store.set(keys::lastNotifiedProtectionCategory, PlistValue("stale"));
    EXPECT_EQ(standard.lastNotifiedProtectionCategory(), "stale");
    store.set(keys::lastNotifiedProtectionCategory, PlistValue("panic"));
    EXPECT_FALSE(standard.lastNotifiedProtectionCategory());

    const WallTime when = WallTime{std::chrono::seconds{1763694900}};
    store.set(keys::maintenanceLastRuns,
              PlistValue(PlistDict{{"npm", PlistValue(when)}, {"pip", PlistValue("x")}}));
    store.set(keys::maintenanceLastFreed,
              PlistValue(PlistDict{{"npm", PlistValue(42)}, {"pip", PlistValue(1.5)}}));
    store.set(keys::duplicateFinderFolders,
              PlistValue(PlistArray{PlistValue("/a"), PlistValue(3), PlistValue("/b")}));
    EXPECT_EQ(standard.maintenanceLastRuns(), (std::map<std::string, WallTime>{{"npm", when}}));
    EXPECT_EQ(standard.maintenanceLastFreed(), (std::map<std::string, std::int64_t>{{"npm", 42}}));
    EXPECT_EQ(standard.duplicateFinderFolders(), (std::vector<std::string>{"/a", "/b"}));
    store.set(keys::hogWatchDismissed, PlistValue("not a dictionary"));
    EXPECT_TRUE(standard.hogWatchDismissed().empty());
}

}  // namespace
}  // namespace kestrow
