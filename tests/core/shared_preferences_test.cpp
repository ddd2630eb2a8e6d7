#include "timemachine/shared_preferences.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "app/settings/settings_keys.h"
#include "support/recording_log_sink.h"
#include "support/temp_folder.h"
#include "support/time_machine_fakes.h"

namespace kestrow {
namespace {

// 2026-11-21T03:15:00Z, a whole second, as the shared store's XML keeps dates.
const WallTime kAttempt = fromSecondsSinceReferenceDate(816923700.0);

Preferences snapshot() {
    Destination nas;
    nas.id = "7C3D9E21-4A5B-4C6D-8E7F-901A2B3C4D5E";
    nas.isNetwork = true;
    nas.networkURL = "smb://tm@nas.local/TimeMachine";
    nas.attempts = {kAttempt};
    Preferences p;
    p.destinations = std::vector{nas};
    p.lastDestination = nas;
    return p;
}

class SharedPreferencesTest : public ::testing::Test {
protected:
    std::size_t count(std::string_view message) const {
        std::size_t n = 0;
        for (const auto& line : sink.lines()) n += line.message == message ? 1u : 0u;
        return n;
    }
    ino_t inode() const {
        struct stat info {};
        ::stat(store.file().c_str(), &info);
        return info.st_ino;
    }

    testing::TempFolder folder;
    testing::RecordingLogSink sink;
    SettingsStore store{folder / "group/shared.plist", Logger(sink, LogArea::general)};
    testing::RecordingWidgetHost widgets;
    SharedPreferences shared{store, widgets, Logger(sink, LogArea::general)};
};

TEST_F(SharedPreferencesTest, StoreOverlaysTheLiveFactsOfTheMoment) {
    store.set(keys::protectedThresholdHours, 36.5);
    store.set(keys::destinationReachable, true);
    store.set(keys::backupVolumeAttached, "yes");  // another type: not known
    store.set(keys::backupRunning, 1);
    store.set(keys::failureReasonReadable, false);
    Preferences stale = snapshot();
    stale.protectedThresholdHours = 12.0;
    stale.backupVolumeAttached = true;
    stale.backupRunning = true;

    EXPECT_TRUE(shared.store(stale));
    EXPECT_EQ(widgets.reloads, std::vector<std::string>{"OrvelWidget"});
    EXPECT_EQ(count("Preferences stored"), 1u);

    Preferences expected = snapshot();
    expected.protectedThresholdHours = 36.5;
    expected.destinationReachable = true;
    expected.failureReasonReadable = false;
    const auto data = store.dataValue(keys::preferences);
    ASSERT_TRUE(data);
    EXPECT_EQ(Preferences::fromJson(std::string(data->begin(), data->end())), expected);
    EXPECT_EQ(shared.load(), expected);

    store.set(keys::protectedThresholdHours, "48");
    ASSERT_TRUE(shared.store(snapshot()));
    EXPECT_EQ(shared.load()->protectedThresholdHours, std::nullopt);
}

TEST_F(SharedPreferencesTest, LoadGivesNothingWithoutReadableData) {
    EXPECT_EQ(shared.load(), std::nullopt);
    EXPECT_EQ(count("Preferences not available"), 1u);

    store.set(keys::preferences, PlistData{'{', 'n', 'o'});
    EXPECT_EQ(shared.load(), std::nullopt);
    ASSERT_FALSE(sink.lines().empty());
    EXPECT_EQ(sink.lines().back().level, LogLevel::error);
    EXPECT_TRUE(sink.lines().back().message.starts_with("Failed loading preferences: "))
        << sink.lines().back().message;

    store.set(keys::preferences, snapshot().toJson());  // text, not data
    EXPECT_EQ(shared.load(), std::nullopt);
    EXPECT_EQ(count("Preferences not available"), 2u);
}

TEST_F(SharedPreferencesTest, RecordedFactsWriteOnlyOnChangeAndRefreshTheSnapshot) {
    using Record = void (SharedPreferences::*)(std::optional<bool>);
    const std::pair<std::string_view, Record> facts[] = {
        {keys::destinationReachable, &SharedPreferences::recordReachability},
        {keys::backupVolumeAttached, &SharedPreferences::recordVolumeAttached},
    };
    for (const auto& [key, record] : facts) {
        const ino_t before = inode();
        (shared.*record)(std::nullopt);  // absent and absent are equal
        EXPECT_EQ(inode(), before) << key;
        (shared.*record)(true);
        EXPECT_EQ(store.boolValue(key), true);
        EXPECT_TRUE(widgets.reloads.empty()) << "no snapshot yet, nothing to store again";
        store.remove(key);
    }

    ASSERT_TRUE(shared.store(snapshot()));
    for (const auto& [key, record] : facts) {
        widgets.reloads.clear();
        (shared.*record)(false);
        EXPECT_EQ(store.boolValue(key), false);
        EXPECT_EQ(widgets.reloads.size(), 1u) << key;
        const auto copy = shared.load()->toJson();
        EXPECT_NE(copy.find("\"" + std::string(key) + "\":false"), std::string::npos) << copy;

        const ino_t written = inode();
        (shared.*record)(false);
        EXPECT_EQ(inode(), written) << key << ": an equal value is not written";
        EXPECT_EQ(widgets.reloads.size(), 1u);

        (shared.*record)(std::nullopt);
        EXPECT_EQ(store.value(key), std::nullopt);
        EXPECT_EQ(shared.load()->toJson().find(std::string(key)), std::string::npos);
        EXPECT_EQ(widgets.reloads.size(), 2u);
    }
}

TEST_F(SharedPreferencesTest, RunningAndReadableStatesReportChangesButLeaveTheSnapshot) {
    ASSERT_TRUE(shared.store(snapshot()));
    widgets.reloads.clear();
    using Set = bool (SharedPreferences::*)(std::optional<bool>);
    const std::pair<std::string_view, Set> facts[] = {
        {keys::backupRunning, &SharedPreferences::setBackupRunning},
        {keys::failureReasonReadable, &SharedPreferences::setFailureReasonReadable},
    };
    for (const auto& [key, set] : facts) {
        EXPECT_FALSE((shared.*set)(std::nullopt)) << key;
        EXPECT_TRUE((shared.*set)(true));
        EXPECT_EQ(store.boolValue(key), true);
        EXPECT_FALSE((shared.*set)(true));
        EXPECT_TRUE((shared.*set)(false));
        EXPECT_TRUE((shared.*set)(std::nullopt));
        EXPECT_EQ(store.value(key), std::nullopt);
    }
    EXPECT_TRUE(widgets.reloads.empty());
    EXPECT_EQ(shared.load(), snapshot()) << "the snapshot is stored again only by the caller";
}

TEST_F(SharedPreferencesTest, AFailureReasonBelongsToAttemptsWithinASecond) {
    EXPECT_EQ(shared.storedFailureReason(kAttempt), std::nullopt);
    shared.storeFailureReason("The backup disk is full", kAttempt);
    for (const double offset : {0.0, 0.9, -0.9}) {
        EXPECT_EQ(shared.storedFailureReason(addSeconds(kAttempt, offset)),
                  "The backup disk is full")
            << offset;
    }
    for (const double offset : {1.0, -1.0, 3600.0}) {
        EXPECT_EQ(shared.storedFailureReason(addSeconds(kAttempt, offset)), std::nullopt) << offset;
    }
    store.set(keys::lastFailureReasonAttempt, "2026-11-21T03:15:00Z");
    EXPECT_EQ(shared.storedFailureReason(kAttempt), std::nullopt);
}

}  // namespace
}  // namespace kestrow
