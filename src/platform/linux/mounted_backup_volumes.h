#pragma once

#include <filesystem>

#include "platform/backup_diagnostics.h"

namespace kestrow {

// A network destination's backup volume counts as attached when a mount point carries the
// volume's name. Linux never attaches a Time Machine disk image by itself, so a volume that is
// not found is "not known" rather than "not attached": that would only ever be a false alarm.
class MountedBackupVolumes final : public BackupVolumes {
public:
    explicit MountedBackupVolumes(std::filesystem::path mountInfo = "/proc/self/mountinfo")
        : mountInfo_(std::move(mountInfo)) {}

    std::optional<bool> attached(const Destination& destination) override;

private:
    std::filesystem::path mountInfo_;
};

}  // namespace kestrow
