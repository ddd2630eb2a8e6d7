#include "platform/linux/mounted_backup_volumes.h"

#include <sstream>

#include "support/atomic_file.h"

namespace kestrow {
namespace {

// mountinfo escapes blanks, tabs, newlines and backslashes in paths as three octal digits.
std::string unescape(const std::string& field) {
    const auto octal = [](char c) { return c >= '0' && c <= '7'; };
    std::string out;
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (field[i] == '\\' && i + 3 < field.size() && octal(field[i + 1]) &&
            octal(field[i + 2]) && octal(field[i + 3])) {
            out.push_back(static_cast<char>((field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 +
                                            (field[i + 3] - '0')));
            i += 3;
        } else {
            out.push_back(field[i]);
        }
    }
    return out;
}

}  // namespace

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
        if (std::filesystem::path(unescape(mountPoint)).filename() == destination.volumeName)
            return true;
    }
    return std::nullopt;
}

}  // namespace kestrow
