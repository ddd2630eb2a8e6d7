#include "menu/menu_alerts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "app/settings/standard_settings.h"
#include "menu/menu_alert_feed.h"
#include "menu/menu_alert_text.h"
#include "support/time_machine_fakes.h"

namespace kestrow {
namespace {

using K = MenuAlertKind;

}  // namespace

void PrintTo(const MenuAlertKind& kind, std::ostream* out) {
    *out << kind.name();
}

namespace {

std::vector<K> kindsOf(const MenuAlertFacts& facts) {
    return MenuAlerts::kinds(MenuAlerts::raise(facts));
}

Destination backupDisk(std::int64_t available, std::int64_t used) {
    Destination d;
    d.id = "D";
    d.volumeName = "Backups";
    d.bytesAvailable = available;
    d.bytesUsed = used;
    return d;
}

HogAlert hog(std::string path) {
    HogAlert alert;
    alert.path = std::move(path);
    alert.size = alert.growth = 8'000'000'000;
    alert.isNew = true;
    return alert;
}

MenuAlertFacts everythingWrong() {
    MenuAlertFacts all;
    all.settingsReadable = false;
    all.localNetworkRefused = true;
    all.driveHealth = DriveHealth::Reading{{DriveHealth::Failing{"Failing"}},
                                           DriveHealth::Status{DriveHealth::Failing{"Failing"}}};
    all.hogs = {hog("/home/a/Videos"), hog("/home/a/.cache")};
    all.daysUntilFull = 5;
    all.freeBytes = 50'000'000'000;
    all.destination = backupDisk(10'000'000'000, 990'000'000'000);
    all.automaticBackups = false;
    all.lastAttemptFailed = true;
    all.failureReason = "The backup disk ran out of room";
    return all;
}

TEST(MenuAlerts, EachAlertNeedsItsFactKnownAndSaid) {
    // Nothing known raises nothing, not even a missing schedule or low space.
    EXPECT_TRUE(MenuAlerts::raise({}).empty());

    const MenuAlertFacts all = everythingWrong();
    const auto raised = MenuAlerts::raise(all);
    // Raised in declaration order; two folders in the hog watch's own order, each carrying its
    // folder for the buttons.
    const std::vector<K> everything{{K::SettingsAccess{}},
                                    {K::LocalNetwork{}},
                                    {K::BootDisk{"Failing"}},
                                    {K::BackupDisk{"Failing"}},
                                    {K::BackupOutOfSpace{}},
                                    {K::Unscheduled{}},
                                    {K::Hog{5}},
                                    {K::Hog{5}},
                                    {K::Space{}},
                                    {K::Retention{}}};
    EXPECT_EQ(MenuAlerts::kinds(raised), everything);
    EXPECT_EQ(raised[6].folder, "/home/a/Videos");
    EXPECT_EQ(raised[7].folder, "/home/a/.cache");

    // Each fact undone, or merely not known, takes exactly its own alert away.
    const auto without = [&](const std::function<void(MenuAlertFacts&)>& change, const K& gone) {
        MenuAlertFacts facts = all;
        change(facts);
        std::vector<K> expected = everything;
        std::erase(expected, gone);
        EXPECT_EQ(kindsOf(facts), expected) << gone.name();
    };
    without([](auto& f) { f.settingsReadable = true; }, {K::SettingsAccess{}});
    without([](auto& f) { f.settingsReadable.reset(); }, {K::SettingsAccess{}});
    without([](auto& f) { f.localNetworkRefused = false; }, {K::LocalNetwork{}});
    without([](auto& f) { f.driveHealth->first = {DriveHealth::Verified{}}; },
            {K::BootDisk{"Failing"}});
    without([](auto& f) { f.driveHealth->first = {DriveHealth::Unavailable{"no tool"}}; },
            {K::BootDisk{"Failing"}});
    without([](auto& f) { f.driveHealth->second = {DriveHealth::NotApplicable{}}; },
            {K::BackupDisk{"Failing"}});
    without([](auto& f) { f.lastAttemptFailed = false; }, {K::BackupOutOfSpace{}});
    without([](auto& f) { f.failureReason = "The backup disk image disconnected"; },
            {K::BackupOutOfSpace{}});
    without([](auto& f) { f.automaticBackups.reset(); }, {K::Unscheduled{}});
    without([](auto& f) { f.automaticBackups = true; }, {K::Unscheduled{}});
    without([](auto& f) { f.nightlyBackupEnabled = true; }, {K::Unscheduled{}});
    // Exactly 2% free is not yet full.
    without([](auto& f) { f.destination = backupDisk(20'000'000'000, 980'000'000'000); },
            {K::Retention{}});
    // Sizes the settings did not give say nothing about fullness.
    without([](auto& f) { f.destination = backupDisk(0, 0); }, {K::Retention{}});

    // Without Time Machine configured, its schedule and its disk raise nothing.
    MenuAlertFacts unconfigured = all;
    unconfigured.destination.reset();
    const auto left = kindsOf(unconfigured);
    for (const K& gone : {K{K::BackupOutOfSpace{}}, K{K::Unscheduled{}}, K{K::Retention{}}})
        EXPECT_EQ(std::count(left.begin(), left.end(), gone), 0) << gone.name();
}

TEST(MenuAlerts, LowSpaceAndFastGrowthHaveTheirEdges) {
    MenuAlertFacts facts;
    facts.freeBytes = 9'999'999'999;
    EXPECT_EQ(kindsOf(facts), std::vector<K>{{K::Space{}}});
    facts.freeBytes = 10'000'000'000;
    EXPECT_TRUE(kindsOf(facts).empty());

    // Full within a week is low space even with room today.
    facts.daysUntilFull = 6;
    EXPECT_EQ(kindsOf(facts), std::vector<K>{{K::Space{}}});
    facts.daysUntilFull = 7;
    EXPECT_TRUE(kindsOf(facts).empty());

    // A growing folder reaches the top only with a date for the full disk.
    facts.hogs = {hog("/home/a/VMs")};
    EXPECT_EQ(kindsOf(facts), std::vector<K>{{K::Hog{7}}});
    facts.daysUntilFull.reset();
    EXPECT_TRUE(kindsOf(facts).empty());

    EXPECT_TRUE(MenuAlerts::saysOutOfRoom("NOT ENOUGH SPACE on the backup disk"));
    EXPECT_TRUE(MenuAlerts::saysOutOfRoom("The backup disk is full"));
    EXPECT_FALSE(MenuAlerts::saysOutOfRoom("The backup disk image disconnected during the backup"));
    EXPECT_TRUE(MenuAlerts::backupDiskFull(backupDisk(0, 1)));
    EXPECT_FALSE(MenuAlerts::backupDiskFull(backupDisk(-1, 1)));
}

TEST(MenuAlerts, CardsCollapseWithTheirFoldersAndSayTheirTexts) {
    const auto raised = MenuAlerts::raise(everythingWrong());
    const auto collapsed = MenuAlerts::split(raised, false);
    ASSERT_EQ(collapsed.shown.size(), 2u);
    EXPECT_EQ(collapsed.shown[0].kind, K{K::SettingsAccess{}});
    EXPECT_EQ(collapsed.hidden.size(), 8u);
    // Order by rank moves the folders with their cards.
    const auto all = MenuAlerts::split(raised, true);
    EXPECT_TRUE(all.hidden.empty());
    EXPECT_EQ(all.shown[6].folder, "/home/a/Videos");
    EXPECT_EQ(all.shown[7].folder, "/home/a/.cache");
    EXPECT_EQ(MenuAlertOrder::toggleLabel(2, 8, false), "Show 8 more alerts");
    // One card alone has no control.
    EXPECT_EQ(MenuAlertOrder::toggleLabel(MenuAlertOrder::split({{K::Space{}}}, false), false),
              std::nullopt);

    const Wording exact = Wording::exact();
    const auto hogText = MenuAlertText::of({K::Hog{1}}, exact);
    EXPECT_EQ(hogText.explanation, "At this rate your disk is full in 1 day");
    EXPECT_EQ(MenuAlertText::of({K::Hog{0}}, exact).explanation,
              "At this rate your disk is full in less than a day");
    ASSERT_EQ(hogText.buttons.size(), 2u);
    EXPECT_EQ(hogText.buttons[1].action, MenuAlertAction::quiet);
    EXPECT_EQ(hogText.buttons[1].help, "Quiet until it grows another 5 GB");
    EXPECT_EQ(MenuAlertText::of({K::BootDisk{"Failing"}}, exact).headline,
              "This Mac's disk reports Failing");
    const auto room = MenuAlertText::of({K::BackupOutOfSpace{}}, exact);
    EXPECT_TRUE(room.runsOn);
    EXPECT_EQ(room.headline + *room.explanation,
              "Last backup failed: not enough room on the backup disk. Time Machine could not "
              "free enough by deleting old backups.");

    // On Linux the card speaks of the computer, and of what restic leaves to the user; Time
    // Machine as the source keeps its own sentence.
    EXPECT_EQ(MenuAlertText::of({K::BootDisk{"Failing"}}, Wording::linux("restic")).headline,
              "This computer's disk reports Failing");
    EXPECT_EQ(MenuAlertText::of({K::BackupOutOfSpace{}}, Wording::linux("restic")).explanation,
              "Free some space on the backup disk, then back up again.");
    EXPECT_EQ(MenuAlertText::of({K::BackupOutOfSpace{}}, Wording::linux("Time Machine")), room);
    const auto hogOnLinux = MenuAlertText::of({K::Hog{1}}, Wording::linux(std::nullopt));
    EXPECT_EQ(hogOnLinux.buttons[0].title, "Reveal in Files");
    EXPECT_EQ(hogOnLinux.buttons[1], hogText.buttons[1]);
}

TEST(MenuAlertFeed, FollowsTheBackupModelAndCarriesOutTheScheduleButton) {
    testing::BackupStatusRig rig;
    Destination disk = backupDisk(5'000'000'000, 995'000'000'000);
    disk.attempts = {rig.hoursAgo(30), rig.hoursAgo(8)};
    disk.snapshots = {rig.hoursAgo(30)};
    disk.lastResult = 28;
    Preferences preferences;
    preferences.destinations = std::vector{disk};
    preferences.lastDestination = disk;
    preferences.automaticBackups = false;
    rig.shared.store(preferences);

    MenuAlertFeed feed({rig.model, rig.standardStore, nullptr, nullptr,
                        [] { return std::optional<std::int64_t>(80'000'000'000); }});
    EXPECT_TRUE(feed.alerts.get().empty());
    rig.model.refresh();
    EXPECT_EQ(MenuAlerts::kinds(feed.alerts.get()),
              (std::vector<K>{{K::Unscheduled{}}, {K::Retention{}}}));

    // The reason arrives later and names the full disk: the failed backup joins the cards.
    ASSERT_EQ(rig.failureReasons.lookups.size(), 1u);
    rig.failureReasons.answer(0, {"Not enough space on the backup disk", true});
    EXPECT_EQ(MenuAlerts::kinds(feed.alerts.get()),
              (std::vector<K>{{K::BackupOutOfSpace{}}, {K::Unscheduled{}}, {K::Retention{}}}));

    feed.turnOnNightlyBackup();
    EXPECT_TRUE(StandardSettings(rig.standardStore).nightlyBackupEnabled());
    EXPECT_EQ(MenuAlerts::kinds(feed.alerts.get()),
              (std::vector<K>{{K::BackupOutOfSpace{}}, {K::Retention{}}}));

    feed.setSettingsReadable(false);
    EXPECT_EQ(feed.alerts.get().front().kind, K{K::SettingsAccess{}});
}

}  // namespace
}  // namespace kestrow
