#include "cleaners/cleaner_path.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <memory>
#include <optional>
#include <utility>

namespace kestrow {
namespace {

bool isDotName(std::string_view name) {
    return name == "." || name == "..";
}

// A single name that cannot step anywhere but into one child.
bool isPlainName(std::string_view name) {
    return !name.empty() && !isDotName(name) && name.find('/') == std::string_view::npos &&
           name.find('\0') == std::string_view::npos;
}

// The components of `text` exactly as spelled: a leading "/" for an absolute path, then each
// name. Nothing when the spelling has an empty component ("a//b", a trailing "/"), a "." or a
// "..": such a path names the right folder only by resolution, and a trailing "/" even makes
// the kernel follow a symbolic link in the last place.
std::optional<std::vector<std::string>> strictComponents(std::string_view text) {
    if (text.empty()) return std::nullopt;
    std::vector<std::string> components;
    std::size_t start = 0;
    if (text.front() == '/') {
        components.emplace_back("/");
        if (text.size() == 1) return components;
        start = 1;
    }
    for (;;) {
        const std::size_t end = text.find('/', start);
        const std::string_view name = text.substr(
            start, end == std::string_view::npos ? std::string_view::npos : end - start);
        if (!isPlainName(name)) return std::nullopt;
        components.emplace_back(name);
        if (end == std::string_view::npos) return components;
        start = end + 1;
    }
}

struct DirCloser {
    void operator()(DIR* dir) const { ::closedir(dir); }
};
using DirHandle = std::unique_ptr<DIR, DirCloser>;

// Open file descriptors are shared with the rest of the process; a tree nested deeper than this
// is measured down to here and the rest counts as skipped.
constexpr std::size_t kMaxOpenLevels = 256;

class SizeWalk {
public:
    CleanerPath::Size size;

    explicit SizeWalk(dev_t device) : device_(device) {}

    // Another file system mounted inside (a file bind-mounted too) is not moved with the
    // folder, and a file linked from outside stays on the disk: neither gives anything back.
    void addFile(const struct stat& info) {
        if (info.st_dev != device_) return;
        const auto bytes = static_cast<std::int64_t>(info.st_blocks) * 512;
        if (info.st_nlink <= 1) {
            size.bytes += bytes;
            return;
        }
        Linked& linked = multiplyLinked_[info.st_ino];
        linked.bytes = bytes;
        linked.links = info.st_nlink;
        ++linked.seen;
    }

    // The files with several links count once all their links were met inside.
    void finish() {
        for (const auto& [inode, linked] : multiplyLinked_) {
            if (linked.seen >= linked.links) size.bytes += linked.bytes;
        }
    }

    // Walks the directory open as `fd` (taken over) depth first, one open handle per level.
    void walk(int fd) {
        std::vector<DirHandle> levels;
        if (!push(levels, fd)) return;
        while (!levels.empty()) {
            DIR* dir = levels.back().get();
            errno = 0;
            const dirent* entry = ::readdir(dir);
            if (entry == nullptr) {
                if (errno != 0) ++size.skipped;
                levels.pop_back();
                continue;
            }
            const std::string_view name = entry->d_name;
            if (isDotName(name)) continue;
            struct stat info {};
            if (::fstatat(::dirfd(dir), entry->d_name, &info, AT_SYMLINK_NOFOLLOW) != 0) {
                if (errno != ENOENT) ++size.skipped;  // one that vanished just now is not a loss
                continue;
            }
            if (S_ISREG(info.st_mode)) {
                addFile(info);
            } else if (S_ISDIR(info.st_mode)) {
                if (info.st_dev != device_) continue;
                if (levels.size() >= kMaxOpenLevels) {
                    ++size.skipped;
                    continue;
                }
                const int child = ::openat(::dirfd(dir), entry->d_name,
                                           O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
                if (child < 0) {
                    if (errno != ENOENT) ++size.skipped;
                    continue;
                }
                push(levels, child);
            }
        }
    }

private:
    struct Linked {
        std::int64_t bytes = 0;
        nlink_t links = 0;
        nlink_t seen = 0;
    };
    dev_t device_;
    std::map<ino_t, Linked> multiplyLinked_;

    bool push(std::vector<DirHandle>& levels, int fd) {
        DirHandle dir(::fdopendir(fd));
        if (!dir) {
            ::close(fd);
            ++size.skipped;
            return false;
        }
        levels.push_back(std::move(dir));
        return true;
    }
};

}  // namespace

bool CleanerPath::hasDotComponents(const std::filesystem::path& path) {
    for (const std::filesystem::path& component : path) {
        if (isDotName(component.native())) return true;
    }
    return false;
}

bool CleanerPath::isRealDirectory(const std::filesystem::path& path) {
    struct stat info {};
    return !path.empty() && ::lstat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// Purely lexical: a symbolic link among the components of `base` passes when it is spelled
// the same, since `base` is the cleaner's own anchor. A link in place of the leaf itself is
// stopped by isRealDirectory, which every re-check pairs with this.
bool CleanerPath::isExactLeaf(const std::filesystem::path& path, const std::filesystem::path& base,
                              const std::vector<std::string>& relative) {
    if (relative.empty()) return false;
    for (const std::string& name : relative) {
        if (!isPlainName(name)) return false;
    }
    // The anchor may carry a trailing "/" (a HOME of "/home/me/"); the target may not.
    std::string_view anchor = base.native();
    while (anchor.size() > 1 && anchor.back() == '/') anchor.remove_suffix(1);
    auto expected = strictComponents(anchor);
    const auto actual = strictComponents(path.native());
    if (!expected || !actual) return false;
    expected->insert(expected->end(), relative.begin(), relative.end());
    return *expected == *actual;
}

CleanerDiscovery CleanerPath::discoverLeaf(const std::filesystem::path& base,
                                           const std::vector<std::string>& relative) {
    std::filesystem::path leaf = base;
    for (const std::string& name : relative) {
        if (!isPlainName(name)) return {};
        leaf /= name;
    }
    if (!isExactLeaf(leaf, base, relative)) return {};
    struct stat info {};
    if (::lstat(leaf.c_str(), &info) != 0) {
        return failedDiscovery(leaf, std::error_code(errno, std::generic_category()));
    }
    if (!S_ISDIR(info.st_mode)) return {};
    // Seeing the folder is not enough: a protected one shows up but cannot be listed, and is
    // then a matter of access rather than of an empty cache.
    const int fd = ::open(leaf.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) return failedDiscovery(leaf, std::error_code(errno, std::generic_category()));
    ::close(fd);
    return CleanerDiscovery{{leaf}, std::nullopt, {base}};
}

PathStatus CleanerPath::status(const std::filesystem::path& path) {
    struct stat info {};
    if (::lstat(path.c_str(), &info) == 0) return PathStatus::usable;
    return status(std::error_code(errno, std::generic_category()));
}

PathStatus CleanerPath::status(const std::error_code& error) {
    if (!error) return PathStatus::usable;
    if (error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory) {
        return PathStatus::absent;
    }
    if (error == std::errc::permission_denied || error == std::errc::operation_not_permitted) {
        return PathStatus::notPermitted;
    }
    return PathStatus::failed;
}

CleanerDiscovery CleanerPath::failedDiscovery(const std::filesystem::path& path,
                                              const std::error_code& error) {
    const PathStatus kind = status(error);
    // A folder that is not there is simply not a target.
    if (kind == PathStatus::absent || kind == PathStatus::usable) return {};
    return CleanerDiscovery{
        {}, CleanerDiscovery::Error{kind, path.string() + ": " + error.message()}, {}};
}

CleanerPath::Size CleanerPath::byteSizeCounting(const std::filesystem::path& path) {
    Size size;
    struct stat info {};
    if (path.empty() || ::lstat(path.c_str(), &info) != 0) {
        if (path.empty() || errno != ENOENT) ++size.skipped;
        return size;
    }
    SizeWalk walk(info.st_dev);
    try {
        if (S_ISREG(info.st_mode)) {
            walk.addFile(info);
        } else if (S_ISDIR(info.st_mode)) {
            const int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            if (fd < 0) {
                if (errno != ENOENT) ++walk.size.skipped;
                return walk.size;
            }
            walk.walk(fd);
        }
        walk.finish();
    } catch (...) {
        // Only running out of memory for the linked-inode set gets here: what was counted stands.
        ++walk.size.skipped;
    }
    return walk.size;
}

std::optional<std::filesystem::path> CleanerPath::anchorOf(
    const std::vector<std::filesystem::path>& anchors, const std::filesystem::path& target) {
    std::optional<std::filesystem::path> best;
    for (const std::filesystem::path& anchor : anchors) {
        std::string_view base = anchor.native();
        while (base.size() > 1 && base.back() == '/') base.remove_suffix(1);
        const std::string_view text = target.native();
        const bool below = base == "/" ? text.size() > 1 && text.front() == '/'
                                       : text.size() > base.size() + 1 && text.starts_with(base) &&
                                             text[base.size()] == '/';
        if (below && (!best || base.size() > best->native().size())) best = std::string(base);
    }
    return best;
}

bool CleanerPath::isRealFolderPath(const std::filesystem::path& anchor,
                                   const std::filesystem::path& target) {
    if (!anchorOf({anchor}, target)) return false;
    std::string_view base = anchor.native();
    while (base.size() > 1 && base.back() == '/') base.remove_suffix(1);
    const std::string_view below =
        std::string_view(target.native()).substr(base == "/" ? 1 : base.size() + 1);
    std::string walked(base == "/" ? "" : base);
    std::size_t start = 0;
    for (;;) {
        const std::size_t slash = below.find('/', start);
        const std::string_view name = below.substr(
            start, slash == std::string_view::npos ? std::string_view::npos : slash - start);
        if (!isPlainName(name)) return false;
        walked += '/';
        walked += name;
        if (!isRealDirectory(walked)) return false;
        if (slash == std::string_view::npos) return true;
        start = slash + 1;
    }
}

}  // namespace kestrow
