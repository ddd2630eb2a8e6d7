#include "platform/linux/smartctl_status.h"

#include <stdlib.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include "insights/drive_health.h"
#include "support/temp_folder.h"

namespace kestrow {
namespace {

namespace fs = std::filesystem;
using kestrow::testing::TempFolder;

// What smartctl 7.x printed for `-j -H -i` on real disks (serial numbers changed).
const char* const kNvmePassed = R"json({
  "json_format_version": [1, 0],
  "smartctl": {
    "version": [7, 3], "svn_revision": "5338",
    "platform_info": "x86_64-linux-6.1.0-21-amd64", "build_info": "(local build)",
    "argv": ["smartctl", "-j", "-H", "-i", "/dev/nvme0n1"], "exit_status": 0
  },
  "local_time": {"time_t": 1717406400, "asctime": "Mon Jun  3 09:20:00 2024 UTC"},
  "device": {"name": "/dev/nvme0n1", "info_name": "/dev/nvme0n1", "type": "nvme",
             "protocol": "NVMe"},
  "model_name": "Samsung SSD 980 PRO 1TB",
  "serial_number": "S5GXNF0R812345K",
  "firmware_version": "5B2QGXA7",
  "nvme_pci_vendor": {"id": 5197, "subsystem_id": 5197},
  "nvme_ieee_oui_identifier": 9528,
  "nvme_total_capacity": 1000204886016,
  "nvme_unallocated_capacity": 0,
  "nvme_controller_id": 6,
  "nvme_version": {"string": "1.3", "value": 66304},
  "nvme_number_of_namespaces": 1,
  "nvme_namespaces": [{"id": 1, "size": {"blocks": 1953525168, "bytes": 1000204886016},
                       "formatted_lba_size": 512}],
  "user_capacity": {"blocks": 1953525168, "bytes": 1000204886016},
  "logical_block_size": 512,
  "smart_support": {"available": true, "enabled": true},
  "smart_status": {"passed": true, "nvme": {"value": 0}}
})json";

const char* const kSataFailed = R"json({
  "json_format_version": [1, 0],
  "smartctl": {
    "version": [7, 2], "svn_revision": "5155",
    "platform_info": "x86_64-linux-5.15.0-105-generic", "build_info": "(local build)",
    "argv": ["smartctl", "-j", "-H", "-i", "/dev/sda"], "exit_status": 8
  },
  "device": {"name": "/dev/sda", "info_name": "/dev/sda [SAT]", "type": "sat",
             "protocol": "ATA"},
  "model_family": "Seagate Barracuda 7200.14 (AF)",
  "model_name": "ST2000DM001-1CH164",
  "serial_number": "Z1E4K3QX",
  "wwn": {"naa": 5, "oui": 3152, "id": 2840128399},
  "firmware_version": "CC27",
  "user_capacity": {"blocks": 3907029168, "bytes": 2000398934016},
  "logical_block_size": 512,
  "physical_block_size": 4096,
  "rotation_rate": 7200,
  "form_factor": {"ata_value": 2, "name": "3.5 inches"},
  "in_smartctl_database": true,
  "ata_version": {"string": "ATA8-ACS T13/1699-D revision 4", "major_value": 1008,
                  "minor_value": 41},
  "sata_version": {"string": "SATA 3.0", "value": 63},
  "local_time": {"time_t": 1717406400, "asctime": "Mon Jun  3 09:20:00 2024 UTC"},
  "smart_support": {"available": true, "enabled": true},
  "smart_status": {"passed": false}
})json";

const char* const kUsbWithoutSmart = R"json({
  "json_format_version": [1, 0],
  "smartctl": {
    "version": [7, 3], "svn_revision": "5338",
    "platform_info": "x86_64-linux-6.1.0-21-amd64", "build_info": "(local build)",
    "argv": ["smartctl", "-j", "-H", "-i", "/dev/sdb"], "exit_status": 4
  },
  "device": {"name": "/dev/sdb", "info_name": "/dev/sdb", "type": "scsi", "protocol": "SCSI"},
  "scsi_vendor": "SanDisk",
  "scsi_product": "Extreme 55AE",
  "scsi_model_name": "SanDisk Extreme 55AE",
  "scsi_revision": "1012",
  "scsi_version": "SPC-4",
  "user_capacity": {"blocks": 1953459617, "bytes": 1000171323904},
  "logical_block_size": 512,
  "rotation_rate": 0,
  "serial_number": "323130375A383038",
  "device_type": {"scsi_terminology": "direct access block device", "scsi_value": 0},
  "local_time": {"time_t": 1717406400, "asctime": "Mon Jun  3 09:20:00 2024 UTC"},
  "smart_support": {"available": false}
})json";

// A smartctl from before JSON output, as some long-term-support systems still ship.
const char* const kGarbage =
    "smartctl 6.6 2016-05-31 r4324 [x86_64-linux-4.15.0-213-generic] (local build)\n"
    "=======> UNRECOGNIZED OPTION: j\n";

TEST(SmartctlVerdict, RecordedOutputsAndWhatMustNotPassForAVerdict) {
    EXPECT_EQ(SmartctlStatus::verdict(kNvmePassed), "Verified");
    EXPECT_EQ(SmartctlStatus::verdict(kSataFailed), "Failing");
    EXPECT_EQ(SmartctlStatus::verdict(kUsbWithoutSmart), "Not Supported");
    EXPECT_EQ(SmartctlStatus::verdict(kGarbage), std::nullopt);

    // An NVMe disk names what is wrong in its critical-warning bits.
    EXPECT_EQ(
        SmartctlStatus::verdict(R"({"smart_status": {"passed": false, "nvme": {"value": 5}}})"),
        "Failing: spare capacity low, reliability degraded");
    // Answered, but without a verdict: a bridge that passes no SMART through.
    EXPECT_EQ(SmartctlStatus::verdict(R"({"device": {"name": "/dev/sdc"}})"), "Not Supported");
    for (const char* odd :
         {"", "[]", "null", "{\"smart_status\": true}", "{\"smart_status\": {\"passed\": \"yes\"}}",
          "{\"smart_status\": {}}", "{\"smart_status\": {\"passed\": tru"}) {
        EXPECT_EQ(SmartctlStatus::verdict(odd), std::nullopt) << odd;
    }
}

// A machine in a folder: a mount table, the parts of sysfs that describe block devices, a /dev
// with plain files for device nodes, and a fake smartctl answering from `answers/`.
class FakeMachine : public TempFolder {
public:
    FakeMachine() {
        fs::create_directories(*this / "answers");
        ::setenv("FAKE_SMARTCTL_DIR", (*this / "answers").c_str(), 1);
    }
    ~FakeMachine() { ::unsetenv("FAKE_SMARTCTL_DIR"); }

    SmartctlStatus::Roots roots() const {
        return {*this / "mountinfo", *this / "sys", *this / "dev"};
    }
    SmartctlStatus smart(double limit = 10.0) const {
        return SmartctlStatus(KESTROW_FAKE_SMARTCTL_PATH, limit, roots());
    }

    // A block device as sysfs shows it; a partition sits inside its disk's folder.
    void blockDevice(const std::string& name, const std::string& number,
                     const std::string& disk = "") const {
        const fs::path folder =
            *this / "sys/devices/pci0000:00/block" / (disk.empty() ? name : disk + "/" + name);
        fs::create_directories(folder);
        write((folder / "dev").lexically_relative(path()), number + "\n");
        if (!disk.empty()) write((folder / "partition").lexically_relative(path()), "1\n");
        fs::create_directories(*this / "sys/dev/block");
        fs::create_directories(*this / "sys/class/block");
        fs::create_symlink(folder, *this / "sys/dev/block" / number);
        fs::create_symlink(folder, *this / "sys/class/block" / name);
        write("dev/" + name, "");
    }
    void mounts(const std::string& table) const { write("mountinfo", table); }
    void answer(const std::string& json, int exit = 0) const {
        write("answers/output.json", json);
        write("answers/exit", std::to_string(exit));
    }
    std::string calls() const {
        std::ifstream in(*this / "answers/calls.log");
        return std::string(std::istreambuf_iterator<char>(in), {});
    }
    std::string asked(const std::string& disk) const {
        return "-j -H -i " + (*this / "dev" / disk).string() + "\n";
    }
};

TEST(SmartctlStatus, FindsTheBootDiskUnderItsPartitionAndReadsTheAnswerWhateverTheExitCode) {
    FakeMachine machine;
    machine.blockDevice("nvme0n1", "259:0");
    machine.blockDevice("nvme0n1p2", "259:2", "nvme0n1");
    machine.mounts(
        "22 27 0:21 / /proc rw,relatime - proc proc rw\n"
        "1 0 0:2 / / rw - rootfs rootfs rw\n"
        // Mounted over the first: this one is what "/" is now.
        "27 1 259:2 / / rw,relatime shared:1 - ext4 /dev/nvme0n1p2 rw,errors=remount-ro\n");
    machine.answer(kNvmePassed);
    EXPECT_EQ(machine.smart().bootDisk(), "Verified");
    EXPECT_EQ(machine.calls(), machine.asked("nvme0n1"));

    // Bit 2 ("a SMART command failed") with a verdict still gives the verdict.
    machine.answer(kNvmePassed, 4);
    EXPECT_EQ(machine.smart().bootDisk(), "Verified");
    machine.answer(kSataFailed, 8);
    EXPECT_EQ(machine.smart().bootDisk(), "Failing");
    const SmartStatus::Verdict noAnswer{std::nullopt, SmartStatus::kNoAnswer};
    machine.answer(kGarbage, 1);
    EXPECT_EQ(machine.smart().bootDisk(), noAnswer);
    // A device it may not open looks to smartctl like one without SMART; its message does not.
    machine.answer(R"({"smartctl": {"messages": [{"string": "Smartctl open device: /dev/nvme0n1 )"
                   R"(failed: Permission denied", "severity": "error"}], "exit_status": 2}})",
                   2);
    EXPECT_EQ(machine.smart().bootDisk(),
              (SmartStatus::Verdict{std::nullopt, SmartStatus::kNoPermission}));

    // A tool that does not answer in time says nothing about the disk.
    machine.answer(kNvmePassed);
    machine.write("answers/delay", "5");
    EXPECT_EQ(machine.smart(0.3).bootDisk(), noAnswer);
    fs::remove(machine / "answers/delay");
    EXPECT_EQ(SmartctlStatus(machine / "no-such-tool", 5.0, machine.roots()).bootDisk(),
              (SmartStatus::Verdict{std::nullopt, SmartStatus::kToolMissing}));

    // The monitor asks from a worker thread, which has no event loop of its own.
    SmartStatus::Verdict fromWorker;
    std::thread worker([&] { fromWorker = machine.smart().bootDisk(); });
    worker.join();
    EXPECT_EQ(fromWorker, "Verified");
}

TEST(SmartctlStatus, FollowsEncryptedAndBtrfsRootsToTheirDiskAndAsksNothingWithoutOne) {
    FakeMachine machine;
    machine.answer(kSataFailed, 8);
    machine.blockDevice("sda", "8:0");
    machine.blockDevice("sda3", "8:3", "sda");
    machine.blockDevice("dm-0", "253:0");
    fs::create_directories(machine / "sys/devices/pci0000:00/block/dm-0/slaves");
    fs::create_symlink(machine / "sys/class/block/sda3",
                       machine / "sys/devices/pci0000:00/block/dm-0/slaves/sda3");
    fs::create_directories(machine / "dev/mapper");
    fs::create_symlink("../dm-0", machine / "dev/mapper/root");
    machine.mounts("27 1 253:0 / / rw,relatime - ext4 /dev/mapper/root rw\n");
    EXPECT_EQ(machine.smart().bootDisk(), "Failing");
    EXPECT_EQ(machine.calls(), machine.asked("sda"));

    // btrfs gives its mounts device numbers of its own; the source still names the partition.
    machine.mounts("27 1 0:31 /@ / rw,relatime shared:1 - btrfs /dev/mapper/root rw,ssd\n");
    EXPECT_EQ(machine.smart().bootDisk(), "Failing");

    fs::remove(machine / "answers/calls.log");
    for (const char* table :
         {"27 1 0:26 / / rw - overlay overlay rw,lowerdir=/l\n", "", "garbage\n27 1\n"}) {
        machine.mounts(table);
        EXPECT_EQ(machine.smart().bootDisk(),
                  (SmartStatus::Verdict{std::nullopt, SmartStatus::kDiskNotFound}))
            << table;
    }
    fs::remove(machine / "mountinfo");
    EXPECT_EQ(machine.smart().bootDisk().reason, SmartStatus::kDiskNotFound);
    EXPECT_EQ(machine.calls(), "");
}

TEST(SmartctlStatus, FindsTheBackupDiskByVolumeNameOrUuidAndNeverAsksAboutANetworkOne) {
    FakeMachine machine;
    machine.answer(kUsbWithoutSmart, 4);
    machine.blockDevice("nvme0n1", "259:0");
    machine.blockDevice("nvme0n1p2", "259:2", "nvme0n1");
    machine.blockDevice("sdb", "8:16");
    machine.blockDevice("sdb1", "8:17", "sdb");
    machine.blockDevice("sdc", "8:32");
    machine.blockDevice("sdc1", "8:33", "sdc");
    fs::create_directories(machine / "dev/disk/by-uuid");
    fs::create_symlink("../../sdc1",
                       machine / "dev/disk/by-uuid/3f0a9c1e-77d2-4c59-a6b3-5d0e1f2a8b44");
    machine.mounts(
        "27 1 259:2 / / rw - ext4 /dev/nvme0n1p2 rw\n"
        "95 27 8:17 / /media/ana/My\\040Backups rw,nosuid - exfat /dev/sdb1 rw\n"
        "96 27 8:33 / /mnt/tm rw,nosuid - ext4 /dev/sdc1 rw\n");

    Destination byName;
    byName.volumeName = "My Backups";
    EXPECT_EQ(machine.smart().backupDisk(byName),
              (SmartStatus::BackupDisk{true, {"Not Supported", SmartStatus::kNoSmart}}));
    EXPECT_EQ(machine.calls(), machine.asked("sdb"));

    Destination byUuid;
    byUuid.volumeName = "Elsewhere";
    byUuid.destinationUUIDs = {
        {"5C6B0C2E-0000-4000-8000-000000000000", "3F0A9C1E-77D2-4C59-A6B3-5D0E1F2A8B44"}};
    fs::remove(machine / "answers/calls.log");
    EXPECT_EQ(machine.smart().backupDisk(byUuid).connected, true);
    EXPECT_EQ(machine.calls(), machine.asked("sdc"));

    // Plugged in but not mounted, the volume is as good as away.
    machine.mounts("27 1 259:2 / / rw - ext4 /dev/nvme0n1p2 rw\n");
    fs::remove(machine / "answers/calls.log");
    EXPECT_EQ(machine.smart().backupDisk(byUuid), (SmartStatus::BackupDisk{false, std::nullopt}));
    EXPECT_EQ(machine.calls(), "");

    // Through the drive-health reading: the network destination is not asked about at all.
    Destination network = byName;
    network.isNetwork = true;
    auto smart = machine.smart();
    const auto reading = DriveHealth::read(network, smart);
    EXPECT_EQ(reading.second, DriveHealth::Status{DriveHealth::NotApplicable{}});
    EXPECT_EQ(machine.calls(), machine.asked("nvme0n1"));
    const auto away = DriveHealth::read(byUuid, smart);
    EXPECT_EQ(away.second, (DriveHealth::Status{DriveHealth::Unavailable{"not connected"}}));
}

}  // namespace
}  // namespace kestrow
