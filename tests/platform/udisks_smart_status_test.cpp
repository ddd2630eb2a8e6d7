// Drive health through UDisks2: a recorded object tree served by python3-dbusmock on a private
// bus, and smartctl (the fake one, a real process) behind it when UDisks2 cannot answer.
#include "platform/linux/udisks_smart_status.h"

#include <stdlib.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "insights/drive_health.h"
#include "platform/linux/smartctl_status.h"
#include "private_session_bus.h"
#include "support/temp_folder.h"

namespace kestrow {
namespace {

namespace fs = std::filesystem;
using kestrow::testing::PrivateSessionBus;
using kestrow::testing::TempFolder;
using Verdict = SmartStatus::Verdict;

// The machine smartctl sees: "/" on the whole disk vda, and the fake tool's answer.
class SmartctlMachine : public TempFolder {
public:
    SmartctlMachine() {
        write("mountinfo", "27 1 254:0 / / rw - ext4 /dev/vda rw\n");
        write("sys/devices/virtual/block/vda/dev", "254:0\n");
        fs::create_directories(*this / "sys/dev/block");
        fs::create_symlink(*this / "sys/devices/virtual/block/vda", *this / "sys/dev/block/254:0");
        write("dev/vda", "");
        write("answers/output.json", R"({"smart_status": {"passed": true}})");
        ::setenv("FAKE_SMARTCTL_DIR", (*this / "answers").c_str(), 1);
    }
    ~SmartctlMachine() { ::unsetenv("FAKE_SMARTCTL_DIR"); }

    SmartctlStatus smartctl(const std::string& program = KESTROW_FAKE_SMARTCTL_PATH) const {
        return SmartctlStatus(program, 10.0, {*this / "mountinfo", *this / "sys", *this / "dev"});
    }
    std::string calls() const {
        std::ifstream in(*this / "answers/calls.log");
        return std::string(std::istreambuf_iterator<char>(in), {});
    }
};

// A private bus serving the recorded tree with this boot disk.
struct UdisksBus {
    explicit UdisksBus(const std::string& disk) {
        started = bus.isRunning() &&
                  bus.startMock({"-t", KESTROW_UDISKS2_TREE, "-p",
                                 QString::fromStdString(R"({"disk": ")" + disk + R"("})")},
                                QStringLiteral("org.freedesktop.UDisks2"));
    }
    PrivateSessionBus bus;
    bool started = false;
};

Destination volume(std::string name, std::vector<std::string> uuids = {}) {
    Destination destination;
    destination.volumeName = std::move(name);
    destination.destinationUUIDs = std::move(uuids);
    return destination;
}

TEST(UdisksSmartStatus, ReadsAtaAndNvmeVerdictsFromTheDriveUnderTheRootAndTheBackupVolume) {
    const SmartctlMachine machine;
    auto smartctl = machine.smartctl();
    struct Case {
        std::string disk;
        Verdict boot;
        DriveHealth::Status health;
    };
    const Case cases[] = {
        {"ata-verified", "Verified", {DriveHealth::Verified{}}},
        {"ata-failing", "Failing", {DriveHealth::Failing{"Failing"}}},
        {"ata-off",
         {std::nullopt, UdisksSmartStatus::kSmartTurnedOff},
         {DriveHealth::Unknown{"SMART is turned off on this disk"}}},
        // Through the encrypted root to the NVMe partition it was opened from.
        {"nvme-warning",
         "Failing: spare capacity low, read-only",
         {DriveHealth::Failing{"Failing: spare capacity low, read-only"}}},
        {"no-smart",
         {"Not Supported", SmartStatus::kNoSmart},
         {DriveHealth::Unknown{"no SMART on this disk"}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.disk);
        UdisksBus udisks(c.disk);
        ASSERT_TRUE(udisks.started) << udisks.bus.errorText().toStdString();
        UdisksSmartStatus smart(udisks.bus.connect(), smartctl);
        EXPECT_EQ(smart.bootDisk(), c.boot);
        EXPECT_EQ(DriveHealth::read(std::nullopt, smart).first, c.health);
    }
    EXPECT_EQ(machine.calls(), "") << "smartctl is not asked while UDisks2 answers";

    // The backup stick, found by its mount point's name or by its UUID in any case; a file
    // system of the same stick that is not mounted is not the volume.
    UdisksBus udisks("ata-verified");
    ASSERT_TRUE(udisks.started) << udisks.bus.errorText().toStdString();
    UdisksSmartStatus smart(udisks.bus.connect(), smartctl);
    const SmartStatus::BackupDisk stick{true, {"Not Supported", SmartStatus::kNoSmart}};
    EXPECT_EQ(smart.backupDisk(volume("My Backups")), stick);
    EXPECT_EQ(smart.backupDisk(volume("Elsewhere", {"3f0a9c1e-77d2-4c59-a6b3-5d0e1f2a8b44"})),
              stick);
    EXPECT_EQ(smart.backupDisk(volume("Elsewhere", {"5C6B0C2E-0000-4000-8000-000000000000"})),
              (SmartStatus::BackupDisk{false, std::nullopt}));
    EXPECT_EQ(smart.backupDisk(volume("")), (SmartStatus::BackupDisk{false, std::nullopt}));
    EXPECT_EQ(DriveHealth::read(volume("My Backups"), smart).second,
              DriveHealth::Status{DriveHealth::Unknown{"no SMART on this disk"}});
}

TEST(UdisksSmartStatus, AsksSmartctlWhenUdisksCannotAnswerAndSaysWhyWhenNeitherCan) {
    const SmartctlMachine machine;
    auto smartctl = machine.smartctl();
    const std::string asked = "-j -H -i " + (machine / "dev/vda").string() + "\n";

    // A root UDisks2 ties to no drive (a logical volume).
    {
        UdisksBus udisks("lvm");
        ASSERT_TRUE(udisks.started) << udisks.bus.errorText().toStdString();
        UdisksSmartStatus smart(udisks.bus.connect(), smartctl);
        EXPECT_EQ(smart.bootDisk(), "Verified");
        EXPECT_EQ(machine.calls(), asked);
    }

    // A bus on which nothing answers for UDisks2, and no bus at all.
    PrivateSessionBus empty;
    ASSERT_TRUE(empty.isRunning()) << empty.errorText().toStdString();
    machine.write("answers/output.json", R"({"smart_status": {"passed": false}})");
    UdisksSmartStatus unanswered(empty.connect(), smartctl);
    EXPECT_EQ(unanswered.bootDisk(), "Failing");
    UdisksSmartStatus unconnected(
        QDBusConnection::connectToBus(
            QStringLiteral("unix:path=") + QString::fromStdString((machine / "no-bus").string()),
            QStringLiteral("kestrow-no-udisks")),
        smartctl);
    EXPECT_EQ(unconnected.bootDisk(), "Failing");
    QDBusConnection::disconnectFromBus(QStringLiteral("kestrow-no-udisks"));
    EXPECT_EQ(machine.calls(), asked + asked + asked);

    // Neither UDisks2 nor smartctl: "unknown", and why.
    auto missing = machine.smartctl((machine / "no-such-smartctl").string());
    UdisksSmartStatus alone(empty.connect(), missing);
    const auto reading = DriveHealth::read(volume("My Backups"), alone);
    EXPECT_EQ(reading.first,
              DriveHealth::Status{DriveHealth::Unknown{"no UDisks2 and no smartctl"}});
    EXPECT_EQ(reading.first.description(), "unknown (no UDisks2 and no smartctl)");
    EXPECT_EQ(reading.second, DriveHealth::Status{DriveHealth::Unavailable{"not connected"}});
}

}  // namespace
}  // namespace kestrow
