#include "platform/linux/shares/gio_share_mounter.h"

#include <thread>

#include <gtest/gtest.h>

#include "platform/linux/shares/gvfs_mount_table.h"
#include "share_rig.h"
#include "share_test_world.h"

namespace kestrow {
namespace {

using testing::findMount;
using testing::readThroughFuse;
using testing::secondsFor;
using testing::ShareServers;
using testing::shareWorld;

#define SKIP_WITHOUT(servers_installed)                                            \
    if (const auto missing = testing::shareRigMissing()) GTEST_SKIP() << *missing; \
    if (!(servers_installed)) GTEST_SKIP() << "the test servers are not installed"

struct MountCase {
    const char* name;
    MountRequest (*request)(const ShareServers&, const std::string&);
    std::optional<std::string> (ShareServers::*start)();
    const char* fsType;
    const char* from;
    const char* folderName;  // gvfs's name for the mount below the volumes root
    const char* helloText;
};

const MountCase kSmb{"SMB",
                     testing::smbRequest,
                     &ShareServers::startSmb,
                     "smbfs",
                     "//root@127.0.0.1/data",
                     "smb-share:server=127.0.0.1,share=data,user=root",
                     "hello over smb\n"};
const MountCase kWebDav{"WebDAV",
                        testing::webDavRequest,
                        &ShareServers::startWebDav,
                        "webdav",
                        "http://root@127.0.0.1/dav",
                        "dav:host=127.0.0.1,ssl=false,user=root,prefix=%2Fdav",
                        "hello over webdav\n"};

// Mounting with the right password shows the share in the table exactly as mapped, through a
// path that really serves its files; unmounting removes it; mounting again is a new instance.
void mountListUnmountRemount(const MountCase& share) {
    SCOPED_TRACE(share.name);
    ShareServers servers(shareWorld().servers());
    const auto started = (servers.*share.start)();
    ASSERT_FALSE(started) << *started;
    GvfsMountTable table;
    GioShareMounter mounter;
    const auto isMounted = [&] { return findMount(table, share.fsType, share.from).has_value(); };

    MountCallResult result;
    const double seconds = secondsFor(
        [&] { result = mounter.mount(share.request(servers, servers.password()), isMounted, {}); });
    EXPECT_FALSE(result.bridgeError) << *result.bridgeError;
    EXPECT_LT(seconds, 5.0);
    const auto entry = findMount(table, share.fsType, share.from);
    ASSERT_TRUE(entry) << "not in the table after mounting";
    EXPECT_EQ(entry->mountedOn, table.volumesRoot() + share.folderName);
    EXPECT_EQ(entry->flags, 0u) << "a mount the user sees carries no don't-browse flag";
    EXPECT_NE(entry->fsid, 0);
    EXPECT_EQ(readThroughFuse(entry->mountedOn + "/hello.txt"), share.helloText);

    // gvfsd-fuse holds the file just read for a moment and gvfs rightly calls the mount busy
    // until it lets go: a busy mount is never forced.
    std::string error;
    bool unmounted = false;
    for (int tries = 0; tries < 25 && !unmounted; ++tries) {
        unmounted = mounter.unmount(entry->mountedOn, &error);
        if (!unmounted) std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    EXPECT_TRUE(unmounted) << error;
    EXPECT_FALSE(isMounted()) << "still listed after unmounting";

    mounter.mount(share.request(servers, servers.password()), isMounted, {});
    const auto again = findMount(table, share.fsType, share.from);
    ASSERT_TRUE(again) << "not in the table after mounting again";
    EXPECT_EQ(again->mountedOn, entry->mountedOn);
    EXPECT_NE(again->fsid, entry->fsid) << "a new mount instance must not pass for the old one";
    EXPECT_TRUE(mounter.unmount(again->mountedOn + "/", &error)) << error;
}

TEST(GioShareMounter, SmbShareMountsListsUnmountsAndRemountsAsANewInstance) {
    SKIP_WITHOUT(ShareServers::smbInstalled());
    mountListUnmountRemount(kSmb);
}

TEST(GioShareMounter, WebDavFolderMountsListsUnmountsAndRemountsAsANewInstance) {
    SKIP_WITHOUT(ShareServers::webDavInstalled());
    mountListUnmountRemount(kWebDav);
}

// A refused password ends the call at once (a second ask is never answered), leaves nothing
// mounted and is no "could not even try".
TEST(GioShareMounter, WrongPasswordMountsNothingAndEndsWithoutWaitingForTheLimit) {
    SKIP_WITHOUT(ShareServers::smbInstalled() && ShareServers::webDavInstalled());
    ShareServers servers(shareWorld().servers());
    for (const MountCase* share : {&kSmb, &kWebDav}) {
        SCOPED_TRACE(share->name);
        const auto started = (servers.*share->start)();
        ASSERT_FALSE(started) << *started;
        GvfsMountTable table;
        GioShareMounter mounter;
        MountCallResult result;
        const double seconds = secondsFor([&] {
            result = mounter.mount(share->request(servers, "not-" + servers.password()),
                                   [] { return false; }, {});
        });
        EXPECT_LT(seconds, 5.0) << "a refused password must not run into the call limit";
        EXPECT_FALSE(result.bridgeError);
        EXPECT_FALSE(findMount(table, share->fsType, share->from));
    }
}

// A server that takes the connection and never answers cannot hold the caller past the call
// limit, nor past a stop request.
TEST(GioShareMounter, SilentServerEndsByTheCallLimitOrByStop) {
    if (const auto missing = testing::shareRigMissing()) GTEST_SKIP() << *missing;
    ShareServers servers(shareWorld().servers());
    ASSERT_TRUE(servers.startSilentListener(445));
    GioShareMounter mounter;
    MountRequest request = testing::smbRequest(servers, servers.password());
    request.callSeconds = 1.5;
    double seconds = secondsFor([&] { mounter.mount(request, [] { return false; }, {}); });
    EXPECT_GE(seconds, 1.4);
    EXPECT_LT(seconds, 4.0);

    request.callSeconds = 30;
    std::stop_source stop;
    std::thread stopper([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        stop.request_stop();
    });
    seconds = secondsFor([&] {
        mounter.mount(
            request, [] { return false; }, stop.get_token());
    });
    stopper.join();
    EXPECT_GE(seconds, 0.4);
    EXPECT_LT(seconds, 3.0);
}

// The mount ends as soon as the caller sees the share in the table, however long GIO takes.
TEST(GioShareMounter, EndsAsSoonAsTheShareIsSeenMounted) {
    if (const auto missing = testing::shareRigMissing()) GTEST_SKIP() << *missing;
    ShareServers servers(shareWorld().servers());
    ASSERT_TRUE(servers.startSilentListener(445));
    GioShareMounter mounter;
    MountRequest request = testing::smbRequest(servers, servers.password());
    request.callSeconds = 20;
    int asked = 0;
    const double seconds =
        secondsFor([&] { mounter.mount(request, [&] { return ++asked >= 3; }, {}); });
    EXPECT_EQ(asked, 3);
    EXPECT_GE(seconds, 0.28) << "the table is asked every 0.1 s, not at every wake";
    EXPECT_LT(seconds, 1.5);
}

TEST(GioShareMounter, AMountThatCannotEvenBeTriedSaysWhy) {
    if (const auto missing = testing::shareRigMissing()) GTEST_SKIP() << *missing;
    GioShareMounter mounter;
    MountRequest request;
    request.url = "nosuchscheme://host/share";
    const auto result = mounter.mount(request, [] { return false; }, {});
    ASSERT_TRUE(result.bridgeError);
    EXPECT_TRUE(result.bridgeError->starts_with("Connecting servers: ")) << *result.bridgeError;
    EXPECT_GT(result.bridgeError->size(), std::string("Connecting servers: ").size());

    std::string error;
    EXPECT_FALSE(mounter.unmount("/proc", &error)) << "a kernel mount is never unmounted here";
    EXPECT_FALSE(error.empty());
}

}  // namespace
}  // namespace kestrow
