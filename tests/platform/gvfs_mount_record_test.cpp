#include "platform/linux/shares/gvfs_mount_record.h"

#include <sys/sysmacros.h>

#include <gtest/gtest.h>

#include "shares/mount_matching.h"
#include "shares/smb_share.h"

namespace kestrow {
namespace {

const std::string kRoot = "/run/user/1000/gvfs/";

GvfsMountRecord smbRecord(std::vector<std::pair<std::string, std::string>> items) {
    GvfsMountRecord record;
    record.dbusId = ":1.7";
    record.objectPath = "/org/gtk/vfs/mount/1";
    record.stableName = "smb-share:server=nas,share=data";
    record.specPrefix = "/";
    record.specItems = std::move(items);
    return record;
}

SMBShare smbShare(const std::string& host, const std::string& name) {
    SMBShare share;
    share.connectionProtocol = ShareProtocol::smb;
    share.host = host;
    share.shareName = name;
    return share;
}

// What the mapping writes must read back through the share matching the manager uses: the
// host, share and user of every kind of record, including names that need escaping.
TEST(GvfsMountRecord, SmbSharesReadBackThroughShareMatching) {
    struct Case {
        std::vector<std::pair<std::string, std::string>> items;
        std::string from, host, share, user;
    };
    const std::vector<Case> cases = {
        {{{"type", "smb-share"}, {"server", "nas"}, {"share", "data"}},
         "//nas/data",
         "nas",
         "data",
         ""},
        {{{"type", "smb-share"},
          {"server", "nas.local"},
          {"share", "Photos 2024"},
          {"user", "ann"},
          {"port", "4455"}},
         "//ann@nas.local:4455/Photos%202024",
         "nas",
         "Photos 2024",
         "ann"},
        {{{"type", "smb-share"}, {"server", "fe80::1"}, {"share", "d"}, {"user", "a@b/c"}},
         "//a%40b%2Fc@[fe80::1]/d",
         "fe80::1",
         "d",
         "a@b/c"},
        // A port that is not a number is left out instead of breaking the host.
        {{{"type", "smb-share"}, {"server", "nas"}, {"share", "d"}, {"port", "44x"}},
         "//nas/d",
         "nas",
         "d",
         ""},
    };
    for (const Case& c : cases) {
        const auto entry = gvfsMountEntry(smbRecord(c.items), kRoot);
        ASSERT_TRUE(entry);
        EXPECT_EQ(entry->fsType, "smbfs");
        EXPECT_EQ(entry->from, c.from);
        EXPECT_EQ(MountMatching::sourceUser(*entry), c.user);
        EXPECT_TRUE(MountMatching::matches(smbShare(c.host, c.share), *entry)) << c.from;
        EXPECT_FALSE(MountMatching::matches(smbShare(c.host, c.share + "x"), *entry)) << c.from;
    }
}

TEST(GvfsMountRecord, WebDavFoldersKeepSchemePortAndPathAndMatchTheirShare) {
    GvfsMountRecord record = smbRecord({{"type", "dav"},
                                        {"host", "cloud.example"},
                                        {"ssl", "true"},
                                        {"port", "8443"},
                                        {"user", "bo b"}});
    record.specPrefix = "/remote.php/web dav";
    auto entry = gvfsMountEntry(record, kRoot);
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->fsType, "webdav");
    EXPECT_EQ(entry->from, "https://bo%20b@cloud.example:8443/remote.php/web%20dav");
    SMBShare share = smbShare("https://cloud.example:8443", "remote.php/web dav");
    share.connectionProtocol = ShareProtocol::webdav;
    EXPECT_TRUE(MountMatching::matches(share, *entry));

    record.specItems = {{"type", "davs"}, {"host", "h"}};
    record.specPrefix = "";
    EXPECT_EQ(gvfsMountEntry(record, kRoot)->from, "https://h/");
    record.specItems = {{"type", "dav"}, {"host", "h"}, {"ssl", "false"}};
    EXPECT_EQ(gvfsMountEntry(record, kRoot)->from, "http://h/");
}

// The path is the FUSE path when gvfsd-fuse runs, else where it would show the mount; a name
// that would leave the volumes folder gives no path at all. Hidden mounts carry the flag, and
// other kinds are listed under a name no share type uses.
TEST(GvfsMountRecord, PathsFlagsIdentitiesAndOtherKinds) {
    GvfsMountRecord record = smbRecord({{"type", "smb-share"}, {"server", "nas"}, {"share", "d"}});
    EXPECT_EQ(gvfsMountEntry(record, kRoot)->mountedOn, kRoot + record.stableName);
    record.fuseMountpoint = "/elsewhere/gvfs/x";
    EXPECT_EQ(gvfsMountEntry(record, kRoot)->mountedOn, "/elsewhere/gvfs/x");
    record.fuseMountpoint.clear();
    for (const char* name : {"..", ".", "a/../../etc", ""}) {
        record.stableName = name;
        EXPECT_EQ(gvfsMountEntry(record, kRoot)->mountedOn, "") << name;
    }

    EXPECT_EQ(gvfsMountEntry(record, kRoot)->flags, 0u);
    record.userVisible = false;
    EXPECT_EQ(gvfsMountEntry(record, kRoot)->flags, kDontBrowseFlag);

    const auto first = gvfsMountEntry(record, kRoot)->fsid;
    record.objectPath = "/org/gtk/vfs/mount/2";
    const auto second = gvfsMountEntry(record, kRoot)->fsid;
    EXPECT_NE(first, second);
    EXPECT_GT(first, 0);
    EXPECT_GT(second, 0);
    // The two texts are kept apart: moving a character across the boundary is another mount.
    EXPECT_NE(gvfsMountIdentity(":1.7", "/a"), gvfsMountIdentity(":1.7/", "a"));

    record.specItems = {{"type", "sftp"}, {"host", "h"}};
    record.stableName = "sftp:host=h";
    EXPECT_EQ(gvfsMountEntry(record, kRoot)->fsType, "gvfs.sftp");
    record.specItems = {{"host", "h"}};
    EXPECT_FALSE(gvfsMountEntry(record, kRoot));
}

TEST(GvfsMountRecord, KernelRowsKeepTheirTypesExceptDavfsAndSkipGvfsItself) {
    const std::string text =
        "36 25 0:32 / /mnt/cifs rw - cifs //nas/data rw,vers=3.0\n"
        "43 27 0:39 / /tmp/my\\040dav rw,nosuid - fuse http://127.0.0.1:28080/ rw,user_id=0\n"
        "44 27 0:40 / /run/user/0/gvfs rw - fuse.gvfsd-fuse gvfsd-fuse rw,user_id=0\n"
        "45 27 0:41 / /mnt/rc rw - fuse.rclone remote:path rw\n"
        "46 27 0:42 / /mnt/other rw - fuse something rw\n"
        "47 27 0:43 / /mnt/tls rw - fuse HTTPS://h/ rw\n"
        "garbage line\n";
    const auto entries = kernelMountEntries(text);
    ASSERT_EQ(entries.size(), 5u);
    EXPECT_EQ(entries[0].fsType, "cifs");
    EXPECT_EQ(entries[0].from, "//nas/data");
    EXPECT_EQ(entries[0].fsid, static_cast<std::int64_t>(makedev(0, 32)));
    EXPECT_EQ(entries[1].fsType, "davfs");
    EXPECT_EQ(entries[1].mountedOn, "/tmp/my dav");
    EXPECT_EQ(entries[2].fsType, "fuse.rclone");
    EXPECT_EQ(entries[3].fsType, "fuse");
    EXPECT_EQ(entries[4].fsType, "davfs");
    for (const MountEntry& entry : entries) EXPECT_EQ(entry.flags, 0u);
}

TEST(GvfsMountRecord, BootIdentityIsPositiveAndOnlyFromARealBootId) {
    const auto id = bootIdentityFromId("0f6c2a8e-3b1d-4c5e-9a7f-1234567890ab\n");
    EXPECT_GT(id, 0);
    EXPECT_EQ(id, bootIdentityFromId("0F6C2A8E-3B1D-4C5E-9A7F-1234567890AB"));
    EXPECT_NE(id, bootIdentityFromId("0f6c2a8e-3b1d-4c5e-9a7f-1234567890ac"));
    EXPECT_GT(bootIdentityFromId("ffffffff-ffff-ffff-0000-000000000000"), 0);
    for (const char* bad : {"", "0f6c2a8e", "0f6c2a8e-3b1d-4c5e-9a7f-1234567890abcd",
                            "0f6c2a8e-3b1d-4c5e-9a7f-1234567890ag"})
        EXPECT_EQ(bootIdentityFromId(bad), 0) << bad;
}

}  // namespace
}  // namespace kestrow
