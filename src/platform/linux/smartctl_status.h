#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/system_clock.h"
#include "platform/linux/tool_launcher.h"
#include "platform/smart_status.h"
#include "support/environment.h"

namespace kestrow {

// Asks smartctl (from smartmontools) for a disk's verdict, reading its JSON output. The disk
// behind a mounted volume is found through the mount table and sysfs: a partition's disk is its
// parent, and device-mapper or RAID volumes are followed down to the first disk under them.
// Calls block on an event loop of their own, so they may run on any thread of the application.
class SmartctlStatus final : public SmartStatus {
public:
    // Where the system describes its disks; tests point these into a folder of their own.
    struct Roots {
        std::filesystem::path mountInfo = "/proc/self/mountinfo";
        std::filesystem::path sys = "/sys";
        std::filesystem::path dev = "/dev";
    };

    // A disk answers in well under a second, but a backup disk that has spun down first has to
    // wake, and a USB bridge may take its time to pass the question on.
    explicit SmartctlStatus(std::string program, double timeLimitSeconds = 30.0);
    SmartctlStatus(std::string program, double timeLimitSeconds, Roots roots);

    // KESTROW_SMARTCTL when set and not empty, else "smartctl" found on the PATH.
    static std::string program(const EnvironmentLookup& environment);

    // The verdict in smartctl's JSON output, whatever its exit code (a bit mask that is not zero
    // for a failing disk, or for one that logged errors in the past):
    //   smart_status.passed true    "Verified"
    //   smart_status.passed false   "Failing", plus what an NVMe disk's critical warning names
    //   SMART unavailable, or no smart_status at all   "Not Supported"
    //   anything that is not a JSON object, or a verdict of another type   nothing
    static std::optional<std::string> verdict(std::string_view json);

    // Without a verdict, the reason: the tool missing, a device it may not open, no SMART.
    Verdict bootDisk() override;
    BackupDisk backupDisk(const Destination& destination) override;

private:
    struct Mount {
        std::string device;  // "major:minor"
        std::string mountPoint;
        std::string source;
    };

    std::vector<Mount> mounts() const;
    // The disk ("nvme0n1", "sda") under a mounted file system, when it has one.
    std::optional<std::string> diskOf(const Mount& mount) const;
    std::optional<std::string> diskOfNode(const std::filesystem::path& node, int depth) const;
    // The mount of the volume with this file system UUID.
    std::optional<Mount> mountWithUuid(const std::vector<Mount>& mounts,
                                       const std::string& uuid) const;
    Verdict ask(const std::string& disk) const;

    // A disk tool that is not installed is remembered as missing rather than started for every
    // disk at every check; the check runs on a worker, so the clock is the machine's own.
    SystemClock clock_;
    mutable ToolLauncher launcher_;
    double timeLimitSeconds_;
    Roots roots_;
};

}  // namespace kestrow
