#include <gtest/gtest.h>

#include "shares/mount_matching.h"

namespace kestrow {
namespace {

using namespace MountMatching;

TEST(MountMatching, SmbSourcesAreReadAsTheKernelAndTheDesktopWriteThem) {
    const auto withUser = smbSource("//tm@nas.local:445/Backups/sub");
    ASSERT_TRUE(withUser);
    EXPECT_EQ(withUser->host, "nas.local");
    EXPECT_EQ(withUser->share, "Backups");
    const auto v6 = smbSource("//ann@[fe80::1]/data");
    ASSERT_TRUE(v6);
    EXPECT_EQ(v6->host, "fe80::1");
    // An "@" in the share is not a user.
    EXPECT_EQ(smbSource("//nas/a@b")->share, "a@b");
    EXPECT_FALSE(smbSource("//nas"));
    EXPECT_FALSE(smbSource("//nas/"));
    EXPECT_FALSE(smbSource("nas/data"));
    EXPECT_FALSE(smbSource("//[fe80::1/data"));
    EXPECT_EQ(sourceUser({"smbfs", "//DOM%5Cann@nas/data", 0, "/x", 1}), "DOM\\ann");
    EXPECT_EQ(sourceUser({"smbfs", "//nas/a@b", 0, "/x", 1}), "");
}

TEST(MountMatching, SharesMatchTheirMountsWhateverMadeThem) {
    SMBShare smb;
    smb.host = "NAS.local";
    smb.shareName = "/Team Files/";
    const std::vector<MountEntry> table{
        {"smbfs", "//ann@nas/team%20files", 0, "/run/user/0/gvfs/a", 1},
        {"cifs", "//nas._smb._tcp.local/Team Files", 0, "/mnt/team", 2},
        {"smbfs", "//nas/other", 0, "/run/user/0/gvfs/b", 3},
        {"fuse.rclone", "//nas/Team Files", 0, "/mnt/rclone", 4},
    };
    EXPECT_EQ(mountedPaths(smb, table),
              (std::vector<std::string>{"/run/user/0/gvfs/a", "/mnt/team"}));

    SMBShare dav;
    dav.connectionProtocol = ShareProtocol::webdav;
    dav.host = "https://Files.example.com:8443";
    dav.shareName = "dav/Team";
    const std::vector<MountEntry> davTable{
        {"webdav", "https://ann@files.example.com:8443/dav/team/", 0, "/g/1", 5},
        {"davfs", "http://files.example.com/dav/Team", 0, "/mnt/dav", 6},
        {"webdav", "ftp://files.example.com/dav/Team", 0, "/g/2", 7},
        {"smbfs", "//files.example.com/dav", 0, "/g/3", 8},
    };
    EXPECT_EQ(mountedPaths(dav, davTable), (std::vector<std::string>{"/g/1", "/mnt/dav"}));
    EXPECT_FALSE(isMounted(dav, table));
    EXPECT_EQ(mountedPath(smb, table), "/run/user/0/gvfs/a");
}

}  // namespace
}  // namespace kestrow
