#include "platform/linux/shares/gvfs_mount_table.h"

#include <sys/mount.h>

#include <QDBusConnection>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include <gtest/gtest.h>

#include "platform/linux/shares/gio_share_mounter.h"
#include "platform/linux/shares/gvfs_volume_events.h"
#include "platform/wait_until.h"
#include "share_rig.h"
#include "share_test_world.h"

namespace kestrow {
namespace {

namespace fs = std::filesystem;
using testing::findMount;
using testing::ShareServers;
using testing::shareWorld;

std::string fileText(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
}

// Every /proc/<pid>/cmdline and environ that holds `secret`.
std::vector<std::string> processesHolding(const std::string& secret) {
    std::vector<std::string> found;
    std::error_code ec;
    for (const auto& process : fs::directory_iterator("/proc", ec))
        for (const char* part : {"cmdline", "environ"})
            if (fileText(process.path() / part).find(secret) != std::string::npos)
                found.push_back((process.path() / part).string());
    return found;
}

// Every regular file below `folder` that holds `secret`; `skip` (the FUSE view of the shares)
// is not entered.
std::vector<std::string> filesHolding(const fs::path& folder, const std::string& secret,
                                      const fs::path& skip) {
    std::vector<std::string> found;
    std::error_code ec;
    for (auto it = fs::recursive_directory_iterator(
             folder, fs::directory_options::skip_permission_denied, ec);
         it != fs::recursive_directory_iterator(); it.increment(ec)) {
        if (ec) break;
        if (it->path() == skip) {
            it.disable_recursion_pending();
            continue;
        }
        if (it->is_regular_file(ec) && fileText(it->path()).find(secret) != std::string::npos)
            found.push_back(it->path().string());
    }
    return found;
}

// While both kinds of share mount, the password is in no process's arguments or environment;
// afterwards it is in no file of the session's folders and in no server or bus log.
TEST(ShareMountSecrets, PasswordNeverReachesACommandLineAnEnvironmentAFileOrALog) {
    if (const auto missing = testing::shareRigMissing()) GTEST_SKIP() << *missing;
    if (!ShareServers::smbInstalled() || !ShareServers::webDavInstalled())
        GTEST_SKIP() << "the test servers are not installed";
    ShareServers servers(shareWorld().servers());
    ASSERT_EQ(servers.startSmb(), std::nullopt);
    ASSERT_EQ(servers.startWebDav(), std::nullopt);
    GvfsMountTable table;
    GioShareMounter mounter;
    for (const auto& request : {testing::smbRequest(servers, servers.password()),
                                testing::webDavRequest(servers, servers.password())}) {
        std::atomic<bool> done = false;
        std::thread mounting([&] {
            mounter.mount(request, [] { return false; }, {});
            done = true;
        });
        std::vector<std::string> seen;
        int scans = 0;
        while (!done) {
            for (auto& where : processesHolding(servers.password())) seen.push_back(where);
            ++scans;
        }
        mounting.join();
        EXPECT_GT(scans, 0);
        EXPECT_TRUE(seen.empty()) << seen.front();
    }
    ASSERT_TRUE(findMount(table, "smbfs", "//root@127.0.0.1/data"));
    ASSERT_TRUE(findMount(table, "webdav", "http://root@127.0.0.1/dav"));
    const fs::path fuse = shareWorld().runtime() / "gvfs";
    for (const fs::path& folder : {shareWorld().home(), shareWorld().runtime(), servers.logFolder(),
                                   shareWorld().root() / "smbclient"}) {
        const auto files = filesHolding(folder, servers.password(), fuse);
        EXPECT_TRUE(files.empty()) << files.front();
    }
    EXPECT_EQ(fileText(shareWorld().root() / "bus-address").find(servers.password()),
              std::string::npos);
}

// A share mounted by hand, the way a user does with `gio mount` (credentials typed on its
// input), is in the table like the ones Kestrow mounts.
TEST(GvfsMountTable, ListsAShareMountedByHand) {
    if (const auto missing = testing::shareRigMissing()) GTEST_SKIP() << *missing;
    if (!ShareServers::smbInstalled()) GTEST_SKIP() << "smbd is not installed";
    ShareServers servers(shareWorld().servers());
    ASSERT_EQ(servers.startSmb(), std::nullopt);
    // A dropped server comes back with the same share and user (the rig's promise to its users).
    servers.stopSmb();
    EXPECT_FALSE(testing::waitForListener(445, 100));
    ASSERT_EQ(servers.startSmb(), std::nullopt);
    // With a user in the URL, gio asks for the domain, then the password.
    const int status = testing::OwnedProcess::run(
        {"gio", "mount", "smb://root@127.0.0.1/data"}, shareWorld().servers() / "gio-mount.log",
        "WORKGROUP\n" + servers.password() + "\n", 15'000);
    ASSERT_EQ(status, 0) << fileText(shareWorld().servers() / "gio-mount.log");
    GvfsMountTable table;
    const auto entry = findMount(table, "smbfs", "//root@127.0.0.1/data");
    ASSERT_TRUE(entry);
    EXPECT_EQ(fs::path(entry->mountedOn).parent_path().string() + "/", table.volumesRoot());
    EXPECT_GT(table.bootIdentity(), 0);
    EXPECT_EQ(table.bootIdentity(), GvfsMountTable().bootIdentity());
}

// The mount service's "Unmounted" signal reaches the callback, on this (the main) thread, with
// the path the table showed for the mount.
TEST(GvfsVolumeEvents, UnmountReachesTheCallbackWithThePath) {
    if (const auto missing = testing::shareRigMissing()) GTEST_SKIP() << *missing;
    if (!ShareServers::smbInstalled()) GTEST_SKIP() << "smbd is not installed";
    ShareServers servers(shareWorld().servers());
    ASSERT_EQ(servers.startSmb(), std::nullopt);
    GvfsMountTable table;
    GioShareMounter mounter;
    // Mounts run on a worker, as in the product: this thread runs Qt's loop.
    const auto mountOnWorker = [&] {
        std::thread([&] {
            mounter.mount(
                testing::smbRequest(servers, servers.password()),
                [&] { return findMount(table, "smbfs", "//root@127.0.0.1/data").has_value(); }, {});
        }).join();
    };
    mountOnWorker();
    const auto entry = findMount(table, "smbfs", "//root@127.0.0.1/data");
    ASSERT_TRUE(entry);

    GvfsVolumeEvents events(QDBusConnection::sessionBus(), table.volumesRoot());
    std::vector<std::optional<std::string>> paths;
    const auto mainThread = std::this_thread::get_id();
    bool onMainThread = true;
    events.start([&](std::optional<std::string> path) {
        onMainThread = onMainThread && std::this_thread::get_id() == mainThread;
        paths.push_back(std::move(path));
    });
    std::string error;
    ASSERT_TRUE(mounter.unmount(entry->mountedOn, &error)) << error;
    ASSERT_TRUE(testing::waitUntil([&] { return !paths.empty(); }));
    EXPECT_EQ(paths.front(), entry->mountedOn);
    EXPECT_TRUE(onMainThread);

    // After stop, nothing more arrives.
    events.stop();
    mountOnWorker();
    ASSERT_TRUE(mounter.unmount(entry->mountedOn, &error)) << error;
    QTest::qWait(300);
    EXPECT_EQ(paths.size(), 1u);
}

// Mounts the kernel holds (here a tmpfs made in this test's own mount namespace) are listed
// under their kernel type with their device as identity, never as a share type.
TEST(GvfsMountTable, KernelMountsAreListedUnderTheirOwnType) {
    if (const auto missing = testing::shareRigMissing()) GTEST_SKIP() << *missing;
    const fs::path point = shareWorld().root() / "kernel mount";
    fs::create_directories(point);
    // A source that looks like a share must not make it one.
    ASSERT_EQ(::mount("//127.0.0.1/data", point.c_str(), "tmpfs", 0, "size=1m"), 0);
    GvfsMountTable table;
    const auto entries = table.current();
    ::umount2(point.c_str(), MNT_DETACH);
    ASSERT_TRUE(entries);
    const auto entry = std::find_if(entries->begin(), entries->end(),
                                    [&](const MountEntry& e) { return e.mountedOn == point; });
    ASSERT_NE(entry, entries->end());
    EXPECT_EQ(entry->fsType, "tmpfs");
    EXPECT_EQ(entry->from, "//127.0.0.1/data");
    EXPECT_NE(entry->fsid, 0);
    EXPECT_EQ(entry->flags, 0u);
    for (const MountEntry& e : *entries) {
        EXPECT_NE(e.fsType, "fuse.gvfsd-fuse") << "the gvfs folder itself is not a mount to list";
        if (e.fsType == "smbfs" || e.fsType == "webdav") {
            EXPECT_TRUE(e.mountedOn.starts_with(table.volumesRoot())) << e.mountedOn;
        }
    }
}

}  // namespace
}  // namespace kestrow
