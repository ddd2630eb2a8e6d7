#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <variant>

namespace kestrow {

// A folder held open by descriptor: whatever happens to the path it was reached by, operations
// relative to it act on that one folder.
class PinnedFolder {
public:
    PinnedFolder() = default;
    explicit PinnedFolder(int fd) : fd_(fd) {}
    ~PinnedFolder();
    PinnedFolder(PinnedFolder&& other) noexcept : fd_(other.release()) {}
    PinnedFolder& operator=(PinnedFolder&& other) noexcept;
    PinnedFolder(const PinnedFolder&) = delete;
    PinnedFolder& operator=(const PinnedFolder&) = delete;

    int fd() const { return fd_; }
    bool valid() const { return fd_ >= 0; }
    int release() {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }

    // The folder as the kernel resolves `path`, links and all (a trusted anchor).
    static std::variant<PinnedFolder, std::string> openAnchor(const std::filesystem::path& path);
    // The child folder `name`, which must be a real folder, not a link.
    std::variant<PinnedFolder, std::string> openChild(const std::string& name) const;
    // The same, made first (with `mode`) when it is not there.
    std::variant<PinnedFolder, std::string> openOrMakeChild(const std::string& name,
                                                            unsigned mode) const;
    // Where the folder is now, as the kernel names it; empty when that cannot be told.
    std::filesystem::path currentPath() const;

private:
    int fd_ = -1;
};

// An item and the folder holding it, pinned: every folder from the anchor down to the parent was
// opened without following a link, so the parent is the real folder below the anchor that the
// path names, and stays that folder.
struct PinnedItem {
    PinnedFolder parent;
    std::string name;

    // `item` must be spelled strictly below `anchor`, without "." / ".." / empty components.
    static std::variant<PinnedItem, std::string> pin(const std::filesystem::path& anchor,
                                                     const std::filesystem::path& item);
};

}  // namespace kestrow
