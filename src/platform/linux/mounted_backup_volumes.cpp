#include "platform/linux/mounted_backup_volumes.h"

#include "support/atomic_file.h"
#include "support/mount_info_field.h"

namespace kestrow {
std::optional<bool> MountedBackupVolumes::attached(const Destination& destination) {
    if (destination.volumeName.empty()) return std::nullopt;
    const auto table = readFile(mountInfo_);
    if (!table) return std::nullopt;
    for (const MountInfoRow& row : parseMountInfo(*table)) {
        if (std::filesystem::path(row.mountPoint).filename() == destination.volumeName) return true;
    }
    return std::nullopt;
}

}  // namespace kestrow
