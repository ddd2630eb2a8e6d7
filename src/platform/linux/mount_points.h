#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace kestrow {

// The mount points this process sees, from /proc/self/mountinfo, unescaped.
struct MountPoints {
    static std::optional<std::vector<std::filesystem::path>> read();
    // The mount points named in mountinfo text, one mount a line.
    static std::vector<std::filesystem::path> parse(const std::string& text);
    // The mount points at `path` or anywhere below it.
    static std::vector<std::filesystem::path> atOrBelow(
        const std::vector<std::filesystem::path>& all, const std::filesystem::path& path);
    // The deepest mount point holding `path`: the top folder of its volume.
    static std::filesystem::path holding(const std::vector<std::filesystem::path>& all,
                                         const std::filesystem::path& path);
};

}  // namespace kestrow
