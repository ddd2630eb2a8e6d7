#include "platform/linux/mounted_backup_volumes.h"

#include <sstream>

#include "support/mount_info_field.h"
#include "support/atomic_file.h"

namespace kestrow {
namespace {}  // namespace

std::optional<bool> MountedBackupVolumes::attached(const Destination& destination) {
    if (destination.volumeName.empty()) return std::nullopt;
    const auto table = readFile(mountInfo_);
    if (!table) return std::nullopt;
    std::istringstream lines(*table);
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream fields(line);
        std::string id, parent, numbers, root, mountPoint;
        if (!(fields >> id >> parent >> numbers >> root >> mountPoint)) continue;
        if (std::filesystem::path(unescapeMountInfoField(mountPoint)).filename() ==
            destination.volumeName)
            return true;
    }
    return std::nullopt;
}

}  // namespace kestrow
