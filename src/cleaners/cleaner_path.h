#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
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
    // The deepest of `anchors` that `target` is spelled strictly below; nothing when none is.
    static std::optional<std::filesystem::path> anchorOf(
        const std::vector<std::filesystem::path>& anchors, const std::filesystem::path& target);
    // Every folder from below `anchor` down to `target` itself is a real folder, not a link,
    // and the path is spelled plainly (no "." / ".." / empty component).
    static bool isRealFolderPath(const std::filesystem::path& anchor,
                                 const std::filesystem::path& target);
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
    // What moving `path` to the Trash gives back once the Trash is emptied: the allocated bytes
    // of every regular file below it on its own file system, links not followed, and a file
    // with several hard links only when all of them are inside. What cannot be read counts as
    // skipped and adds nothing.
    static Size byteSizeCounting(const std::filesystem::path& path);
};

}  // namespace kestrow
