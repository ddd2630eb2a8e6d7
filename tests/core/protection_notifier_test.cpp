#include "timemachine/protection_notifier.h"

#include <gtest/gtest.h>

#include "app/settings/settings_keys.h"
#include "support/recording_log_sink.h"
#include "support/temp_folder.h"
#include "support/time_machine_fakes.h"

namespace kestrow {
namespace {

using RecordingNotifications = testing::RecordingUserNotifications;

ProtectionVerdict verdict(ProtectionState state, std::string headline = "Headline") {
    return {state, {std::move(headline), "Detail"}, false};
}

class ProtectionNotifierTest : public ::testing::Test {
protected:
    std::optional<std::string> stored() const {
        return store.stringValue(keys::lastNotifiedProtectionCategory);
    }

    testing::TempFolder folder;
    testing::RecordingLogSink sink;
    SettingsStore store{folder / "standard.plist", Logger(sink, LogArea::general)};
    RecordingNotifications notifications;
    ProtectionNotifier notifier{store, notifications, Logger(sink, LogArea::general)};
};

TEST_F(ProtectionNotifierTest, CategoriesOfTheStates) {
    EXPECT_EQ(ProtectionNotifier::category(ProtectionState::protected_), "ok");
    EXPECT_EQ(ProtectionNotifier::category(ProtectionState::aging), "ok");
    EXPECT_EQ(ProtectionNotifier::category(ProtectionState::stale), "stale");
    EXPECT_EQ(ProtectionNotifier::category(ProtectionState::unavailable), "unavailable");
    EXPECT_EQ(ProtectionNotifier::category(ProtectionState::unknown), std::nullopt);
}

TEST_F(ProtectionNotifierTest, NotifiesOncePerChangeButNeverForTheFirstVerdict) {
    notifier.handle(verdict(ProtectionState::protected_));
    EXPECT_EQ(stored(), "ok");
    EXPECT_TRUE(notifications.posts.empty());

    notifier.handle(verdict(ProtectionState::stale, "Last successful backup 3 days ago"));
    notifier.handle(verdict(ProtectionState::stale, "Last successful backup 4 days ago"));
    EXPECT_EQ(stored(), "stale");
    ASSERT_EQ(notifications.posts.size(), 1u);
    EXPECT_EQ(notifications.posts[0].identifier, "protection-transition");
    EXPECT_EQ(notifications.posts[0].title, "Backups are falling behind");
    EXPECT_EQ(notifications.posts[0].body, "Last successful backup 3 days ago");

    // Aging and protected are one category: moving between them is not news.
    notifier.handle(verdict(ProtectionState::aging));
    notifier.handle(verdict(ProtectionState::protected_));
    notifier.handle(verdict(ProtectionState::unavailable, "Backup destination is offline"));
    ASSERT_EQ(notifications.posts.size(), 3u);
    EXPECT_EQ(notifications.posts[1].title, "Backed up again");
    EXPECT_EQ(notifications.posts[2].title, "Backup destination unavailable");
    EXPECT_EQ(notifications.posts[2].body, "Backup destination is offline");
    EXPECT_EQ(sink.messages().size(), 4u);  // one line per change, the first included

    // The memory survives a restart.
    RecordingNotifications afterRestart;
    ProtectionNotifier restarted(store, afterRestart, Logger(sink, LogArea::general));
    restarted.handle(verdict(ProtectionState::unavailable));
    EXPECT_TRUE(afterRestart.posts.empty());
}

TEST_F(ProtectionNotifierTest, UnknownNeitherNotifiesNorMovesTheMemory) {
    notifier.handle(verdict(ProtectionState::unknown));
    EXPECT_EQ(store.value(keys::lastNotifiedProtectionCategory), std::nullopt);

    notifier.handle(verdict(ProtectionState::stale));
    notifier.handle(verdict(ProtectionState::unknown));
    EXPECT_EQ(stored(), "stale");
    notifier.handle(verdict(ProtectionState::stale));
    EXPECT_TRUE(notifications.posts.empty());
    EXPECT_EQ(sink.messages().size(), 1u);
}

TEST_F(ProtectionNotifierTest, AnOlderAttentionCategoryCountsAsOk) {
    store.set(keys::lastNotifiedProtectionCategory, "attention");
    notifier.handle(verdict(ProtectionState::aging));
    EXPECT_TRUE(notifications.posts.empty());

    notifier.handle(verdict(ProtectionState::stale));
    EXPECT_EQ(notifications.posts.size(), 1u);
}

TEST_F(ProtectionNotifierTest, DisabledNotificationsStillMoveTheMemory) {
    store.set(keys::notificationsEnabled, false);
    notifier.handle(verdict(ProtectionState::protected_));
    notifier.handle(verdict(ProtectionState::stale));
    EXPECT_EQ(stored(), "stale");
    EXPECT_TRUE(notifications.posts.empty());

    // Turning them back on does not replay the change that was passed over.
    store.set(keys::notificationsEnabled, true);
    notifier.handle(verdict(ProtectionState::stale));
    EXPECT_TRUE(notifications.posts.empty());
    notifier.handle(verdict(ProtectionState::protected_));
    EXPECT_EQ(notifications.posts.size(), 1u);
}

}  // namespace
}  // namespace kestrow
