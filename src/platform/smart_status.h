#pragma once

#include <optional>
#include <string>

#include "timemachine/destination.h"

namespace kestrow {

// The disks' own verdict on their health (SMART). Both calls block while the system is asked, so
// they run on a worker, never on the main thread.
class SmartStatus {
public:
    // The verdict as the system words it: "Verified", "Not Supported", or words saying the disk is
    // failing. Nothing when the disk or its verdict could not be found.
    using Text = std::optional<std::string>;

    struct BackupDisk {
        bool connected = false;  // false when no mounted volume is the destination's
        Text text;
        bool operator==(const BackupDisk&) const = default;
    };

    virtual ~SmartStatus() = default;
    // The disk the system runs from.
    virtual Text bootDisk() = 0;
    // The disk holding a local backup destination's volume.
    virtual BackupDisk backupDisk(const Destination& destination) = 0;
};

}  // namespace kestrow
