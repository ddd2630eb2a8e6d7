#include "platform/linux/shares/gvfs_mount_table.h"

#include <stdlib.h>

#include <QDBusMessage>

#include <chrono>

#include <gtest/gtest.h>

#include "private_session_bus.h"

namespace kestrow {
namespace {

using testing::PrivateSessionBus;

const QString kTracker = QStringLiteral("org.gtk.vfs.Daemon");
const QString kPath = QStringLiteral("/org/gtk/vfs/mounttracker");
const QString kInterface = QStringLiteral("org.gtk.vfs.MountTracker");
const QString kMounts = QStringLiteral("a(sossssssbay(aya{sv})ay)");

bool addListMounts(PrivateSessionBus& bus, const QString& code) {
    auto add = QDBusMessage::createMethodCall(
        kTracker, kPath, QStringLiteral("org.freedesktop.DBus.Mock"), QStringLiteral("AddMethod"));
    add << kInterface << QStringLiteral("ListMounts2") << QStringLiteral("b") << kMounts << code;
    return bus.connect().call(add).type() == QDBusMessage::ReplyMessage;
}

bool hasShareType(const std::vector<MountEntry>& entries) {
    return std::any_of(entries.begin(), entries.end(), [](const MountEntry& entry) {
        return entry.fsType == "smbfs" || entry.fsType == "webdav";
    });
}

// GLib's session bus is one per process and each test runs in its own, so it is pointed at the
// test's bus before anything in GIO asks for it.
class GvfsMountTableBus : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(bus_.isRunning()) << bus_.errorText().toStdString();
        ::setenv("DBUS_SESSION_BUS_ADDRESS", bus_.address().toUtf8().constData(), 1);
    }
    PrivateSessionBus bus_;
};

// A session where gvfsd neither runs nor can be started has no network mounts, but the table is
// still read: only a mount service that hangs makes it unreadable, and then within its bound.
TEST_F(GvfsMountTableBus, NoMountServiceMeansNoNetworkMountsButAHangingOneMeansUnreadable) {
    GvfsMountTable table("/run/user/0/gvfs/");
    const auto without = table.current();
    ASSERT_TRUE(without) << "no gvfsd is not an unreadable table";
    EXPECT_FALSE(without->empty()) << "the kernel's mounts are still listed";
    EXPECT_FALSE(hasShareType(*without));

    ASSERT_TRUE(bus_.startMock({kTracker, kPath, kInterface}, kTracker))
        << bus_.errorText().toStdString();
    ASSERT_TRUE(addListMounts(bus_, QStringLiteral("import time\ntime.sleep(4)\nret = []")));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(table.current());
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_GE(seconds, 1.9);
    EXPECT_LT(seconds, 3.5);
}

// What the mount service sends crosses the bus as byte strings with trailing NULs, and a hidden
// mount of another kind sits beside the share: both arrive mapped.
TEST_F(GvfsMountTableBus, ReadsTheServicesRecordsOffTheBus) {
    ASSERT_TRUE(bus_.startMock({kTracker, kPath, kInterface}, kTracker))
        << bus_.errorText().toStdString();
    ASSERT_TRUE(addListMounts(bus_, QStringLiteral(R"(
def spec(prefix, items):
    return (dbus.ByteArray(prefix + b'\0'),
            dbus.Dictionary({k: dbus.ByteArray(v + b'\0', variant_level=1) for k, v in items.items()},
                            signature='sv'))
ret = dbus.Array([
    (':1.4', dbus.ObjectPath('/org/gtk/vfs/mount/1'), 'data on nas', 'smb-share:server=nas,share=data,user=ann',
     '', '', '', '', True, dbus.ByteArray(b''),
     spec(b'/', {'type': b'smb-share', 'server': b'nas', 'share': b'data', 'user': b'ann'}),
     dbus.ByteArray(b'/\0')),
    (':1.4', dbus.ObjectPath('/org/gtk/vfs/mount/2'), 'trash', 'trash',
     '', '', '', '', False, dbus.ByteArray(b'/somewhere/gvfs/trash\0'),
     spec(b'/', {'type': b'trash'}), dbus.ByteArray(b'\0')),
], signature='(sossssssbay(aya{sv})ay)')
)")));
    GvfsMountTable table("/run/user/7/gvfs/");
    const auto entries = table.current();
    ASSERT_TRUE(entries);
    ASSERT_GE(entries->size(), 2u);
    const MountEntry& share = (*entries)[0];
    EXPECT_EQ(share.fsType, "smbfs");
    EXPECT_EQ(share.from, "//ann@nas/data");
    EXPECT_EQ(share.mountedOn, "/run/user/7/gvfs/smb-share:server=nas,share=data,user=ann");
    EXPECT_EQ(share.flags, 0u);
    const MountEntry& trash = (*entries)[1];
    EXPECT_EQ(trash.fsType, "gvfs.trash");
    EXPECT_EQ(trash.mountedOn, "/somewhere/gvfs/trash");
    EXPECT_EQ(trash.flags, kDontBrowseFlag);
    EXPECT_NE(share.fsid, trash.fsid);
}

}  // namespace
}  // namespace kestrow
