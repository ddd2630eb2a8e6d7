#include "shares/share_manager.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include "app/settings/settings_keys.h"
#include "support/backup_fakes.h"
#include "support/recording_log_sink.h"
#include "support/share_fakes.h"
#include "support/temp_folder.h"
#include "support/time_machine_fakes.h"
#include "support/virtual_scheduler.h"

namespace kestrow {
namespace {

using namespace kestrow::testing;

const std::string kRoot = "/run/user/1000/gvfs/";

SMBShare share(const std::string& id, const std::string& shareName, bool autoMount = true) {
    SMBShare s;
    s.id = id;
    s.name = "Share " + shareName;
    s.host = "nas";
    s.shareName = shareName;
    s.autoMount = autoMount;
    return s;
}

// A share manager in virtual time over fakes at every port and real stores in a temp folder.
struct ShareRig {
    explicit ShareRig(double uptime = 7200.0, std::vector<SMBShare> initial = {})
        : scheduler(VirtualScheduler::defaultStart(), uptime) {
        table.root = kRoot;
        ShareStore(folder.path()).save(initial);
        // A mount that works shows up as gvfs mounts it, one new instance per mount.
        mounter.mountsAs = [this](const MountRequest& request) -> std::optional<MountEntry> {
            const auto slash = request.url.rfind('/');
            return gvfsSmbEntry(kRoot, "nas", request.url.substr(slash + 1), ++nextFsid);
        };
        manager = std::make_unique<ShareManager>(ShareManagerParts{
            scheduler, scheduler.mainExecutor(), mountQueue, unmountQueue, statusQueue, table,
            mounter, availability, network, volumes, passwords, notifications, settings, store,
            Logger(sink, LogArea::mounting), [this] { return destinations; },
            MountOwnership::Resolve{}, Wording::linux("restic")});
    }

    void start(bool networkUp = true) {
        manager->startMonitoring();
        if (networkUp) network.set(true);
    }
    const SMBShare& shown(std::size_t index) const { return manager->shares().get().at(index); }
    std::string pathOf(const std::string& shareName) const {
        return kRoot + "smb-share:server=nas,share=" + shareName;
    }
    // Puts a mount of `shareName` in the table that Kestrow's ledger records as its own.
    void ownedMount(const std::string& shareName) {
        const MountEntry entry = gvfsSmbEntry(kRoot, "nas", shareName, ++nextFsid);
        table.add(entry);
        MountLedger(settings).save({{entry.mountedOn, entry.fsid, entry.from, table.boot}});
    }

    VirtualScheduler scheduler;
    Executor& mountQueue = scheduler.makeSerialQueue();
    Executor& unmountQueue = scheduler.makeSerialQueue();
    Executor& statusQueue = scheduler.makeSerialQueue();
    TempFolder folder;
    RecordingLogSink sink;
    SettingsStore settings{folder / "standard.plist", Logger(sink, LogArea::general)};
    ShareStore store{folder.path()};
    FakeMountTable table;
    FakeShareMounter mounter{table};
    FakeConnectionAvailability availability;
    FakeNetworkPath network;
    FakeVolumeEvents volumes;
    FakeSecretStore secrets{scheduler.mainExecutor()};
    SharePasswords passwords{secrets};
    RecordingUserNotifications notifications;
    std::optional<std::vector<std::string>> destinations = std::vector<std::string>{};
    std::int64_t nextFsid = 100;
    std::unique_ptr<ShareManager> manager;
};

TEST(ShareManagerTest, TheFirstPassWaitsUntilFifteenSecondsAfterBootOrOneSecondAfterLaunch) {
    {
        ShareRig rig(3.0, {share("A", "data")});
        rig.start();
        rig.scheduler.advance(12.9);
        EXPECT_TRUE(rig.mounter.mounts.empty());
        rig.scheduler.advance(0.2);  // the ticker starts at 12 s, its first pass 1 s later
        ASSERT_EQ(rig.mounter.mounts.size(), 1u);
        EXPECT_EQ(rig.shown(0).status, MountStatus::mounted);
        ASSERT_EQ(rig.notifications.posts.size(), 1u);
        EXPECT_EQ(rig.notifications.posts[0].title, "Connected");
        EXPECT_EQ(rig.notifications.posts[0].body, "Share data successfully connected.");
        // Made by this call and nothing else: recorded as Kestrow's own.
        EXPECT_EQ(MountLedger(rig.settings).load().size(), 1u);
    }
    {
        ShareRig rig(7200.0, {share("A", "data")});
        rig.start();
        rig.scheduler.advance(1.9);
        EXPECT_TRUE(rig.mounter.mounts.empty());
        rig.scheduler.advance(0.2);
        EXPECT_EQ(rig.mounter.mounts.size(), 1u);
    }
}

TEST(ShareManagerTest, ASecondMountWhileOneIsPendingDoesNothing) {
    ShareRig rig(7200.0, {share("A", "data", false)});
    rig.start();
    rig.manager->mount(rig.shown(0));
    rig.manager->mount(rig.shown(0));
    EXPECT_EQ(rig.shown(0).status, MountStatus::connecting);
    rig.scheduler.advance(0.1);
    EXPECT_EQ(rig.availability.calls, 1);
    EXPECT_EQ(rig.mounter.mounts.size(), 1u);
    // Once it ended, a new request goes through again.
    rig.table.table.clear();
    rig.manager->mount(rig.shown(0));
    rig.scheduler.advance(0.1);
    EXPECT_EQ(rig.mounter.mounts.size(), 2u);
}

TEST(ShareManagerTest, TimeLimitsFollowWhetherUserAndPasswordAreBothThere) {
    ShareRig rig(7200.0);
    rig.start();
    SMBShare withUser = share("A", "data", false);
    withUser.username = "DOM\\alice";
    rig.manager->add(withUser, "p&ss:word");
    rig.manager->mount(rig.shown(0));
    rig.scheduler.advance(0.1);
    ASSERT_EQ(rig.mounter.mounts.size(), 1u);
    const MountRequest first = rig.mounter.mounts[0];
    EXPECT_FALSE(first.interactive);
    EXPECT_EQ(first.attemptSeconds, 2.0);
    EXPECT_EQ(first.callSeconds, 10.0);
    EXPECT_EQ(first.password, "p&ss:word");
    EXPECT_EQ(first.url.find("p%26ss"), std::string::npos) << first.url;
    EXPECT_EQ(first.url, "smb://DOM%5Calice@nas/data");

    // A user name but no stored password, and a keyring that fails: the long limits.
    SMBShare noPassword = share("B", "other", false);
    noPassword.username = "bob";
    rig.manager->add(noPassword, "");
    SMBShare lockedOut = share("C", "third", false);
    lockedOut.username = "carol";
    rig.manager->add(lockedOut, "secret");
    rig.secrets.failWith = SecretAnswer::Status::locked;
    rig.manager->mount(rig.shown(1));
    rig.manager->mount(rig.shown(2));
    rig.scheduler.advance(0.1);
    ASSERT_EQ(rig.mounter.mounts.size(), 3u);
    for (std::size_t i : {1u, 2u}) {
        EXPECT_TRUE(rig.mounter.mounts[i].interactive);
        EXPECT_EQ(rig.mounter.mounts[i].attemptSeconds, 120.0);
        EXPECT_EQ(rig.mounter.mounts[i].callSeconds, 125.0);
        EXPECT_EQ(rig.mounter.mounts[i].password, "");
    }
}

// Attempt times that fall on the ticker's beat (its first pass 1 s after it starts, then every
// 1.5 s) are ticker passes; every other attempt is an extra retry.
int extraRetriesAmong(const std::vector<double>& times, double tickerStart) {
    int extra = 0;
    for (double t : times) {
        const double since = t - tickerStart;
        const double beats = since / 1.5;
        const bool onBeat =
            std::abs(since - 1.0) < 1e-6 || std::abs(beats - std::round(beats)) < 1e-6;
        if (!onBeat) ++extra;
    }
    return extra;
}

TEST(ShareManagerTest, AFailingShareGetsThreeExtraRetriesAndASuccessRestoresThem) {
    ShareRig rig(7200.0, {share("A", "data")});
    std::vector<double> attempts;
    rig.availability.during = [&] { attempts.push_back(rig.scheduler.monotonic()); };
    rig.availability.reachable = false;
    rig.start();
    rig.scheduler.advance(20.0);
    EXPECT_EQ(extraRetriesAmong(attempts, 1.0), 3);
    EXPECT_GE(attempts.size(), 12u);  // the ticker goes on
    EXPECT_EQ(rig.shown(0).status, MountStatus::disconnected);
    EXPECT_EQ(rig.shown(0).lastError, "Host aktuell nicht erreichbar (SMB Port 445).");
    EXPECT_TRUE(rig.mounter.mounts.empty());

    rig.availability.reachable = true;
    rig.scheduler.advance(1.5);
    ASSERT_EQ(rig.shown(0).status, MountStatus::mounted);
    EXPECT_FALSE(rig.shown(0).lastError.has_value());

    // The mount drops and the server is gone again: a fresh budget of three.
    rig.availability.reachable = false;
    attempts.clear();
    rig.table.removeAt(rig.pathOf("data"));
    rig.volumes.unmounted(rig.pathOf("data"));
    rig.scheduler.advance(20.0);
    // The ticker had not stopped yet, so it keeps its beat.
    EXPECT_EQ(extraRetriesAmong(attempts, 1.0), 3);
    EXPECT_TRUE(MountLedger(rig.settings).load().empty());
}

TEST(ShareManagerTest, WebDAVUnreachableSaysSoInItsOwnWords) {
    SMBShare dav = share("W", "files", false);
    dav.connectionProtocol = ShareProtocol::webdav;
    ShareRig rig(7200.0, {dav});
    rig.availability.reachable = false;
    rig.start();
    rig.manager->mount(rig.shown(0));
    rig.scheduler.advance(0.1);
    EXPECT_EQ(rig.shown(0).lastError, "Host aktuell nicht erreichbar (WebDAV Port 80/443).");
    // Not an auto-mount share: no extra retry follows.
    rig.scheduler.advance(5.0);
    EXPECT_EQ(rig.availability.calls, 1);
}

TEST(ShareManagerTest, LosingTheNetworkDisconnectsAllSilentlyAndItsReturnRemounts) {
    ShareRig rig(7200.0, {share("A", "data"), share("B", "other")});
    rig.start();
    rig.scheduler.advance(3.0);
    ASSERT_EQ(rig.shown(0).status, MountStatus::mounted);
    ASSERT_EQ(rig.shown(1).status, MountStatus::mounted);
    const auto posts = rig.notifications.posts.size();

    rig.network.set(false);
    EXPECT_EQ(rig.shown(0).status, MountStatus::disconnected);
    EXPECT_EQ(rig.shown(1).status, MountStatus::disconnected);
    EXPECT_EQ(rig.notifications.posts.size(), posts);
    rig.table.table.clear();
    const int calls = rig.availability.calls;
    rig.scheduler.advance(10.0);
    EXPECT_EQ(rig.availability.calls, calls);  // no ticker while the network is gone

    rig.network.set(true);
    rig.scheduler.advance(1.1);
    EXPECT_EQ(rig.shown(0).status, MountStatus::mounted);
    EXPECT_EQ(rig.shown(1).status, MountStatus::mounted);
}

TEST(ShareManagerTest, TheTickerStopsWhenAllAreMountedAndKeepsGoingWhileTheTableIsUnreadable) {
    ShareRig rig(7200.0, {share("A", "data")});
    rig.table.readable = false;
    rig.start();
    rig.scheduler.advance(10.0);
    const int readsWhileUnreadable = rig.table.reads;
    rig.scheduler.advance(10.0);
    EXPECT_GE(rig.table.reads - readsWhileUnreadable, 6);
    EXPECT_TRUE(rig.mounter.mounts.empty());
    EXPECT_EQ(rig.shown(0).status, MountStatus::disconnected);
    int notes = 0;
    for (const auto& line : rig.sink.messages())
        if (line == "Mounting: kernel mount table unreadable; skipping this auto-mount pass")
            ++notes;
    EXPECT_EQ(notes, 1);  // logged once until it changes

    rig.table.readable = true;
    rig.scheduler.advance(3.0);
    ASSERT_EQ(rig.shown(0).status, MountStatus::mounted);
    const int readsWhenMounted = rig.table.reads;
    rig.scheduler.advance(30.0);
    EXPECT_EQ(rig.table.reads, readsWhenMounted);
}

TEST(ShareManagerTest, AVanishedMountIsForgottenShownAndReconnectedOnItsOwnTimetable) {
    ShareRig rig(7200.0, {share("A", "data")});
    rig.start();
    rig.scheduler.advance(5.0);  // mounted, and the ticker has stopped
    ASSERT_EQ(rig.shown(0).status, MountStatus::mounted);
    ASSERT_EQ(MountLedger(rig.settings).load().size(), 1u);
    const int calls = rig.availability.calls;

    rig.table.removeAt(rig.pathOf("data"));
    rig.volumes.unmounted(rig.pathOf("data"));
    rig.scheduler.advance(0.9);
    EXPECT_TRUE(MountLedger(rig.settings).load().empty());
    EXPECT_EQ(rig.shown(0).status, MountStatus::mounted);
    rig.scheduler.advance(0.2);  // the refresh 1 s after the event
    EXPECT_EQ(rig.shown(0).status, MountStatus::disconnected);
    // The ticker starts 1 s after the refresh and makes its first pass 1 s later.
    rig.scheduler.advance(1.8);
    EXPECT_EQ(rig.availability.calls, calls);
    rig.scheduler.advance(0.2);
    EXPECT_EQ(rig.availability.calls, calls + 1);
    EXPECT_EQ(rig.shown(0).status, MountStatus::mounted);
}

TEST(ShareManagerTest, ADisconnectedShareIsNeverAutoMountedUntilTheUserMountsIt) {
    ShareRig rig(7200.0, {share("A", "data")});
    rig.start();
    rig.scheduler.advance(3.0);
    ASSERT_EQ(rig.shown(0).status, MountStatus::mounted);
    rig.manager->unmount(rig.shown(0));
    rig.scheduler.advance(1.0);
    ASSERT_EQ(rig.mounter.unmounts, std::vector<std::string>{rig.pathOf("data")});
    EXPECT_EQ(rig.shown(0).status, MountStatus::disconnected);

    // Neither the ticker, nor a drop, nor the auto-mount pass brings it back.
    rig.volumes.unmounted(rig.pathOf("data"));
    rig.manager->mountAllAutoShares();
    rig.scheduler.advance(30.0);
    EXPECT_EQ(rig.mounter.mounts.size(), 1u);
    EXPECT_EQ(rig.shown(0).status, MountStatus::disconnected);

    rig.manager->mount(rig.shown(0));
    rig.scheduler.advance(0.5);
    EXPECT_EQ(rig.mounter.mounts.size(), 2u);
    EXPECT_EQ(rig.shown(0).status, MountStatus::mounted);
}

TEST(ShareManagerTest, NothingButAMountMadeInThisBootEverReachesTheUnmounter) {
    const SMBShare data = share("A", "data", false);
    struct Case {
        const char* what;
        std::function<void(ShareRig&)> arrange;
        std::string reason;
    };
    const std::string another =
        "Connected by another app, or before this update — left alone. Eject it in Files to "
        "disconnect.";
    const std::vector<Case> cases{
        {"a record from an earlier boot",
         [](ShareRig& rig) {
             const MountEntry entry = gvfsSmbEntry(kRoot, "nas", "data", 5);
             rig.table.add(entry);
             MountLedger(rig.settings).save({{entry.mountedOn, 5, entry.from, rig.table.boot - 1}});
         },
         another},
        {"the same path, another mount instance",
         [](ShareRig& rig) {
             const MountEntry entry = gvfsSmbEntry(kRoot, "nas", "data", 5);
             rig.table.add(entry);
             MountLedger(rig.settings).save({{entry.mountedOn, 6, entry.from, rig.table.boot}});
         },
         another},
        {"a mount by hand",
         [](ShareRig& rig) { rig.table.add(gvfsSmbEntry(kRoot, "nas", "data", 5)); }, another},
        {"a backup destination",
         [](ShareRig& rig) {
             rig.ownedMount("data");
             rig.destinations = std::vector<std::string>{"smb://nas.local/data"};
         },
         "restic's backup share — left alone"},
        {"a hidden mount",
         [](ShareRig& rig) {
             MountEntry entry = gvfsSmbEntry(kRoot, "nas", "data", 5);
             entry.flags = kDontBrowseFlag;
             rig.table.add(entry);
             MountLedger(rig.settings).save({{entry.mountedOn, 5, entry.from, rig.table.boot}});
         },
         "Mounted by the system — left alone"},
        {"a kernel mount at a recorded path",
         [](ShareRig& rig) {
             MountEntry entry = gvfsSmbEntry(kRoot, "nas", "data", 5);
             entry.fsType = "cifs";
             rig.table.add(entry);
             MountLedger(rig.settings).save({{entry.mountedOn, 5, entry.from, rig.table.boot}});
         },
         another},
        {"a table that turns unreadable after the first verdict",
         [](ShareRig& rig) {
             rig.ownedMount("data");
             rig.table.onRead = [](FakeMountTable& t) {
                 if (t.reads > 1) t.readable = false;
             };
         },
         "Could not tell who connected it — left alone"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        ShareRig rig(7200.0, {data});
        c.arrange(rig);
        rig.manager->updateMountStatuses();
        rig.scheduler.advance(0.1);
        rig.table.reads = 0;
        rig.manager->unmount(rig.shown(0));
        rig.scheduler.advance(2.0);
        EXPECT_TRUE(rig.mounter.unmounts.empty());
        EXPECT_EQ(rig.shown(0).lastError, c.reason);
        EXPECT_EQ(rig.shown(0).status, MountStatus::mounted);
        ASSERT_FALSE(rig.notifications.posts.empty());
        EXPECT_EQ(rig.notifications.posts.back().title, data.name);
        EXPECT_EQ(rig.notifications.posts.back().body, c.reason);
        EXPECT_TRUE(rig.sink.contains("Mounting: " + data.name + " is not unmounted: " + c.reason));
    }
    // And the one that is ours does go.
    ShareRig rig(7200.0, {data});
    rig.ownedMount("data");
    rig.manager->unmount(rig.shown(0));
    rig.scheduler.advance(2.0);
    EXPECT_EQ(rig.mounter.unmounts, std::vector<std::string>{rig.pathOf("data")});
    EXPECT_EQ(rig.shown(0).status, MountStatus::disconnected);
}

TEST(ShareManagerTest, AMountCallThatBroughtTwoNewMountsRecordsNeitherAndLeavesThemAlone) {
    ShareRig rig(7200.0, {share("A", "data", false)});
    rig.mounter.mountsAs = [&rig](const MountRequest&) -> std::optional<MountEntry> {
        MountEntry second = gvfsSmbEntry(kRoot, "nas", "data", 900);
        second.mountedOn += "-2";
        rig.table.add(second);
        return gvfsSmbEntry(kRoot, "nas", "data", 901);
    };
    rig.start();
    rig.manager->mount(rig.shown(0));
    rig.scheduler.advance(0.1);
    ASSERT_EQ(rig.shown(0).status, MountStatus::mounted);
    EXPECT_TRUE(MountLedger(rig.settings).load().empty());
    EXPECT_TRUE(rig.sink.contains("Share data is connected but not recorded as Kestrow's own"));
    rig.manager->unmount(rig.shown(0));
    rig.scheduler.advance(1.0);
    EXPECT_TRUE(rig.mounter.unmounts.empty());
}

TEST(ShareManagerTest, EditingKeepsPasswordsByTheRulesAndRemovingUnmountsOnlyWhatIsOurs) {
    ShareRig rig(7200.0);
    rig.start();
    SMBShare data = share("A", "data", false);
    rig.manager->add(data, "");
    rig.scheduler.advance(0.1);
    EXPECT_TRUE(rig.secrets.items.empty());
    rig.manager->update(data, "first");
    rig.manager->update(data, "");
    rig.scheduler.advance(0.1);
    EXPECT_EQ(rig.secrets.items.size(), 1u);
    EXPECT_EQ(rig.secrets.items.begin()->second, "first");
    EXPECT_EQ(rig.store.load().size(), 1u);

    // Editing a mounted share remounts it; a share that is ours is unmounted when removed.
    data.autoMount = true;
    rig.manager->mount(rig.shown(0));
    rig.scheduler.advance(0.1);
    ASSERT_EQ(rig.shown(0).status, MountStatus::mounted);
    rig.manager->update(data, "");
    rig.scheduler.advance(1.0);
    EXPECT_EQ(rig.mounter.unmounts.size(), 1u);
    EXPECT_EQ(rig.mounter.mounts.size(), 2u);
    EXPECT_EQ(rig.shown(0).status, MountStatus::mounted);

    rig.manager->remove(rig.shown(0));
    rig.scheduler.advance(1.0);
    EXPECT_EQ(rig.mounter.unmounts.size(), 2u);
    EXPECT_TRUE(rig.manager->shares().get().empty());
    EXPECT_TRUE(rig.secrets.items.empty());
    EXPECT_TRUE(rig.store.load().empty());
}

}  // namespace
}  // namespace kestrow
