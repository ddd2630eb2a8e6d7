#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "cleaners/cleaner.h"

namespace kestrow {

// The path checks every cleaner's discovery and re-check are built from. None of them follows a
// symbolic link out of where a target is supposed to be.
struct CleanerPath {
    struct Size {
        std::int64_t bytes = 0;  // allocated, so what the disk gets back
        int skipped = 0;         // entries that could not be read
        bool operator==(const Size&) const = default;
    };

    static bool hasDotComponents(const std::filesystem::path& path);
    // An existing directory that is not a symbolic link.
    static bool isRealDirectory(const std::filesystem::path& path);
    // Exactly `base` followed by `relative`, nothing more or less, spelled the same.
    static bool isExactLeaf(const std::filesystem::path& path, const std::filesystem::path& base,
                            const std::vector<std::string>& relative);
    // The one folder base/relative when it is a real directory; else nothing.
    static CleanerDiscovery discoverLeaf(const std::filesystem::path& base,
                                         const std::vector<std::string>& relative);
    static PathStatus status(const std::filesystem::path& path);
    static PathStatus status(const std::error_code& error);
    // A discovery that stopped on `error` while reading `path`.
    static CleanerDiscovery failedDiscovery(const std::filesystem::path& path,
                                            const std::error_code& error);
    // Allocated bytes of every regular file below `path` (each inode once, links not followed);
    // what cannot be read counts as skipped and adds nothing.
    static Size byteSizeCounting(const std::filesystem::path& path);
};

}  // namespace kestrow
