#include "platform/demo/demo_shares.h"

#include <gtest/gtest.h>

#include "shares/mount_matching.h"
#include "shares/share_url.h"
#include "shares/vpn_presentation.h"

namespace kestrow {
namespace {

TEST(DemoShares, TheNasIsConnectedAndTheOfficeShareWaitsForItsVpnWithTheHint) {
    DemoShares demo("/run/user/1000");
    const auto shares = demo.records();
    ASSERT_EQ(shares.size(), 2u);
    const SMBShare& studio = shares[0];
    const SMBShare& office = shares[1];
    EXPECT_EQ(studio.name, "Studio NAS");
    EXPECT_EQ(studio.connectionProtocol, ShareProtocol::smb);
    EXPECT_EQ(office.name, "Office Files");
    EXPECT_EQ(office.connectionProtocol, ShareProtocol::webdav);
    EXPECT_EQ(office.webDAVScheme, WebDAVScheme::https);
    EXPECT_EQ(displayHost(office), "files.example.com");
    EXPECT_EQ(office.shareName, "team");

    // The demo's table speaks the mount table's language: the share manager's matching finds the
    // NAS in it, at the path its record expects, and not the office share.
    const auto table = demo.current();
    ASSERT_TRUE(table);
    EXPECT_TRUE(MountMatching::isMounted(studio, *table));
    EXPECT_EQ(MountMatching::mountedPath(studio, *table), studio.mountPoint);
    EXPECT_TRUE(studio.mountPoint.starts_with(demo.volumesRoot()));
    EXPECT_FALSE(MountMatching::isMounted(office, *table));
    EXPECT_EQ(VPNPresentation::hint(false, office.vpnServiceID, office.vpnName, demo.read()),
              "Office VPN is off");
    EXPECT_EQ(VPNPresentation::hint(true, studio.vpnServiceID, studio.vpnName, demo.read()),
              std::nullopt);
}

TEST(DemoShares, MountingAndUnmountingFlipOnlyTheDemoTable) {
    DemoShares demo;
    const auto shares = demo.records();
    const SMBShare& studio = shares[0];
    const SMBShare& office = shares[1];
    std::string error;
    ASSERT_TRUE(demo.unmount(studio.mountPoint, &error));
    EXPECT_FALSE(MountMatching::isMounted(studio, *demo.current()));
    EXPECT_FALSE(demo.unmount(studio.mountPoint, &error)) << "nothing left there";
    EXPECT_FALSE(error.empty());

    const auto request = [](const SMBShare& share) {
        const MountUrl url = mountUrl(share, "", share.host);
        return MountRequest{share.connectionProtocol, url.url, share.username, "", url.interactive};
    };
    std::stop_source stop;
    EXPECT_FALSE(demo.mount(
                         request(studio), [] { return false; }, stop.get_token())
                     .bridgeError);
    const auto table = *demo.current();
    EXPECT_TRUE(MountMatching::isMounted(studio, table));
    EXPECT_EQ(table.size(), 1u);
    // Connected again, it is a new mount instance.
    EXPECT_NE(table[0].fsid, 1000);

    demo.mount(
        request(office), [] { return false; }, stop.get_token());
    EXPECT_FALSE(MountMatching::isMounted(office, *demo.current())) << "its VPN is off";
}

}  // namespace
}  // namespace kestrow
