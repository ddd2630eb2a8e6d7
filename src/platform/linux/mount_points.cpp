#include "platform/linux/mount_points.h"

#include <string>

#include "support/atomic_file.h"
#include "support/mount_info_field.h"

namespace kestrow {
namespace {

bool isAtOrBelow(const std::string& candidate, const std::string& folder) {
    if (folder == "/") return !candidate.empty() && candidate.front() == '/';
    return candidate == folder ||
           (candidate.size() > folder.size() && candidate.starts_with(folder) &&
            candidate[folder.size()] == '/');
}

}  // namespace

std::optional<std::vector<std::filesystem::path>> MountPoints::read() {
    const auto text = readFile("/proc/self/mountinfo");
    if (!text) return std::nullopt;
    return parse(*text);
}

std::vector<std::filesystem::path> MountPoints::parse(const std::string& text) {
    std::vector<std::filesystem::path> points;
    for (MountInfoRow& row : parseMountInfo(text)) points.emplace_back(std::move(row.mountPoint));
    return points;
}

std::vector<std::filesystem::path> MountPoints::atOrBelow(
    const std::vector<std::filesystem::path>& all, const std::filesystem::path& path) {
    std::vector<std::filesystem::path> found;
    for (const auto& point : all) {
        if (isAtOrBelow(point.native(), path.native())) found.push_back(point);
    }
    return found;
}

std::filesystem::path MountPoints::holding(const std::vector<std::filesystem::path>& all,
                                           const std::filesystem::path& path) {
    std::filesystem::path best;
    for (const auto& point : all) {
        if (isAtOrBelow(path.native(), point.native()) &&
            point.native().size() >= best.native().size()) {
            best = point;
        }
    }
    return best;
}

}  // namespace kestrow
