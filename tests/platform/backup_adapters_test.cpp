#include <gtest/gtest.h>

#include <QTcpServer>

#include <fstream>

#include "platform/linux/mounted_backup_volumes.h"
#include "platform/linux/process_time_machine_tools.h"
#include "platform/linux/qt_file_watcher.h"
#include "platform/linux/system_clock.h"
#include "platform/linux/tcp_network_probe.h"
#include "support/atomic_file.h"
#include "support/recording_log_sink.h"
#include "support/temp_folder.h"
#include "support/time_machine_fakes.h"
#include "timemachine/preferences_file.h"
#include "wait_until.h"

namespace kestrow {
namespace {

// Time Machine and most editors save by writing a new file and renaming it over the old one; the
// watch must survive that, more than once, and ignore the other files in the folder.
TEST(QtFileWatcher, FollowsTheFileThroughAtomicReplacesAndIgnoresItsNeighbours) {
    testing::TempFolder folder;
    const auto file = folder / "com.apple.TimeMachine.plist";
    folder.write("com.apple.TimeMachine.plist", "one");
    QtFileWatcher watcher;
    int changes = 0;
    const auto watch = watcher.watch(file, [&] { ++changes; });

    folder.write("unrelated.plist", "noise");
    QTest::qWait(150);
    EXPECT_EQ(changes, 0);

    for (int round = 1; round <= 3; ++round) {
        const int before = changes;
        ASSERT_TRUE(writeFileAtomically(file, "version " + std::to_string(round)));
        EXPECT_TRUE(testing::waitUntil([&] { return changes > before; }))
            << "replace number " << round;
    }

    // Removed, then created again: both are changes of the file.
    int before = changes;
    std::filesystem::remove(file);
    EXPECT_TRUE(testing::waitUntil([&] { return changes > before; }));
    before = changes;
    folder.write("com.apple.TimeMachine.plist", "back");
    EXPECT_TRUE(testing::waitUntil([&] { return changes > before; }));
}

// A restic repository's snapshots/ folder gains a file with every new snapshot: watching the
// folder must tell of that, as the snapshot listing is refreshed on it.
TEST(QtFileWatcher, AWatchedFolderTellsOfAFileAddedInIt) {
    testing::TempFolder folder;
    std::filesystem::create_directories(folder / "repo" / "snapshots");
    QtFileWatcher watcher;
    int changes = 0;
    const auto watch = watcher.watch(folder / "repo" / "snapshots", [&] { ++changes; });
    folder.write("repo/snapshots/5f1c0b7a", "snapshot");
    EXPECT_TRUE(testing::waitUntil([&] { return changes > 0; }));
}

TEST(QtFileWatcher, StopsCallingOnceTheWatchIsGone) {
    testing::TempFolder folder;
    folder.write("settings.plist", "one");
    QtFileWatcher watcher;
    int changes = 0;
    auto watch = watcher.watch(folder / "settings.plist", [&] { ++changes; });
    watch.reset();
    folder.write("settings.plist", "two");
    QTest::qWait(150);
    EXPECT_EQ(changes, 0);
}

TEST(TcpNetworkProbe, TellsAListeningPortFromAClosedOneAndCancelsQuietly) {
    QTcpServer server;
    ASSERT_TRUE(server.listen(QHostAddress::LocalHost));
    const auto open = static_cast<std::uint16_t>(server.serverPort());
    QTcpServer closedServer;
    ASSERT_TRUE(closedServer.listen(QHostAddress::LocalHost));
    const auto closed = static_cast<std::uint16_t>(closedServer.serverPort());
    closedServer.close();

    TcpNetworkProbe probe(2.0);
    std::optional<bool> toOpen;
    std::optional<bool> toClosed;
    const auto a = probe.connect("127.0.0.1", open, [&](bool r) { toOpen = r; });
    const auto b = probe.connect("localhost", closed, [&](bool r) { toClosed = r; });
    ASSERT_TRUE(testing::waitUntil([&] { return toOpen && toClosed; }));
    EXPECT_TRUE(*toOpen);
    EXPECT_FALSE(*toClosed);

    int calls = 0;
    auto cancelled = probe.connect("127.0.0.1", open, [&](bool) { ++calls; });
    cancelled.reset();
    QTest::qWait(200);
    EXPECT_EQ(calls, 0);
}

TEST(MountedBackupVolumes, FindsTheVolumeByItsMountPointsNameOnly) {
    testing::TempFolder folder;
    folder.write("mountinfo",
                 "22 1 0:21 / /proc rw,nosuid - proc proc rw\n"
                 "98 29 0:45 / /media/me/Time\\040Vault rw - cifs //nas/tm rw\n"
                 "99 29 0:46 / /mnt/VaultArchive rw - ext4 /dev/sdb1 rw\n"
                 "garbage line\n");
    MountedBackupVolumes volumes(folder / "mountinfo");
    Destination destination;
    destination.isNetwork = true;
    destination.volumeName = "Time Vault";
    EXPECT_EQ(volumes.attached(destination), true);
    // A longer name that merely starts the same is another volume; not finding it says nothing.
    destination.volumeName = "Vault";
    EXPECT_EQ(volumes.attached(destination), std::nullopt);
    destination.volumeName = "";
    EXPECT_EQ(volumes.attached(destination), std::nullopt);
    EXPECT_EQ(MountedBackupVolumes(folder / "missing").attached(destination), std::nullopt);
}

}  // namespace
}  // namespace kestrow

namespace kestrow {
namespace {

// The whole reading path on the real system: Time Machine rewrites its settings by rename, the
// watch sees it, the real tool is asked whether a backup runs, and the shared store follows.
TEST(PreferencesFileOnLinux, ARewrittenSettingsFileReachesTheSharedStore) {
    testing::TempFolder folder;
    const auto settings = folder / "com.apple.TimeMachine.plist";
    const auto write = [&](const char* volume) {
        const PlistDict destination{{"DestinationID", "D1"}, {"LastKnownVolumeName", volume}};
        ASSERT_TRUE(writeFileAtomically(
            settings, PlistValue(PlistDict{{"Destinations", PlistArray{destination}},
                                           {"LastDestinationID", "D1"}})
                          .toXml()));
    };
    write("First");
    std::filesystem::create_directories(folder / "tool");
    folder.write("tool/status.out",
                 PlistValue(PlistDict{{"Running", 1}, {"BackupPhase", "Copying"}}).toXml());
    ::setenv("FAKE_TMUTIL_DIR", (folder / "tool").c_str(), 1);

    testing::RecordingLogSink sink;
    const Logger log(sink, LogArea::general);
    SettingsStore store(folder / "shared.plist", log);
    testing::RecordingWidgetHost widgets;
    SharedPreferences shared(store, widgets, log);
    SystemClock clock;
    QtFileWatcher watcher;
    ProcessTimeMachineTools tools(KESTROW_FAKE_TMUTIL_PATH, clock, log);
    PreferencesFile file({settings, false, clock, watcher, tools, shared, log});
    ASSERT_TRUE(file.hasAccess());
    const auto volume = [&]() -> std::string {
        const auto p = shared.load();
        return p && p->lastDestination ? p->lastDestination->volumeName : "";
    };
    EXPECT_EQ(volume(), "First");

    write("Second");
    EXPECT_TRUE(testing::waitUntil([&] { return volume() == "Second"; }));
    EXPECT_EQ(store.boolValue("backupRunning"), true);
    ::unsetenv("FAKE_TMUTIL_DIR");
}

}  // namespace
}  // namespace kestrow
