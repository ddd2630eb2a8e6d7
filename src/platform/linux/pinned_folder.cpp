#include "platform/linux/pinned_folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>
#include <vector>

namespace kestrow {
namespace {

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

std::string reason(const std::string& what, int error) {
    return what + ": " + std::strerror(error);
}

// The names of `text` split at "/"; nothing when one of them is empty, "." or "..", since such
// a spelling reaches its folder only by resolution.
std::optional<std::vector<std::string>> plainNames(std::string_view text) {
    std::vector<std::string> names;
    if (text.empty()) return names;
    for (;;) {
        const std::size_t slash = text.find('/');
        const std::string_view name = text.substr(0, slash);
        if (name.empty() || name == "." || name == "..") return std::nullopt;
        names.emplace_back(name);
        if (slash == std::string_view::npos) return names;
        text.remove_prefix(slash + 1);
    }
}

}  // namespace

PinnedFolder::~PinnedFolder() {
    if (fd_ >= 0) ::close(fd_);
}

PinnedFolder& PinnedFolder::operator=(PinnedFolder&& other) noexcept {
    if (this != &other) {
        if (fd_ >= 0) ::close(fd_);
        fd_ = other.release();
    }
    return *this;
}

std::variant<PinnedFolder, std::string> PinnedFolder::openAnchor(
    const std::filesystem::path& path) {
    if (path.empty()) return std::string("no folder given");
    const int fd = ::open(path.c_str(), kFolderFlags);
    if (fd < 0) return reason(path.string(), errno);
    return PinnedFolder(fd);
}

std::variant<PinnedFolder, std::string> PinnedFolder::openChild(const std::string& name) const {
    const int fd = ::openat(fd_, name.c_str(), kFolderFlags | O_NOFOLLOW);
    if (fd >= 0) return PinnedFolder(fd);
    const int error = errno;
    // O_NOFOLLOW on a link fails with ELOOP, or ENOTDIR with O_DIRECTORY on some kernels.
    if (error == ELOOP || error == ENOTDIR) {
        struct stat info {};
        if (::fstatat(fd_, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISLNK(info.st_mode)) {
            return (currentPath() / name).string() + " is a symbolic link, not a folder";
        }
        return (currentPath() / name).string() + " is not a folder";
    }
    return reason((currentPath() / name).string(), error);
}

std::variant<PinnedFolder, std::string> PinnedFolder::openOrMakeChild(const std::string& name,
                                                                      unsigned mode) const {
    if (::mkdirat(fd_, name.c_str(), static_cast<mode_t>(mode)) != 0 && errno != EEXIST) {
        return reason((currentPath() / name).string(), errno);
    }
    return openChild(name);
}

std::filesystem::path PinnedFolder::currentPath() const {
    const std::string link = "/proc/self/fd/" + std::to_string(fd_);
    std::vector<char> buffer(4096);
    for (;;) {
        const ssize_t length = ::readlink(link.c_str(), buffer.data(), buffer.size());
        if (length < 0) return {};
        if (static_cast<std::size_t>(length) < buffer.size()) {
            return std::string(buffer.data(), static_cast<std::size_t>(length));
        }
        buffer.resize(buffer.size() * 2);
    }
}

std::variant<PinnedItem, std::string> PinnedItem::pin(const std::filesystem::path& anchor,
                                                      const std::filesystem::path& item) {
    std::string_view anchorText = anchor.native();
    while (anchorText.size() > 1 && anchorText.back() == '/') anchorText.remove_suffix(1);
    const std::string_view itemText = item.native();
    const std::string refused = item.string() + " is not a plain path below " + anchor.string();
    if (anchorText.empty() || !itemText.starts_with(anchorText)) return refused;
    std::string_view below = itemText.substr(anchorText.size());
    if (anchorText != "/") {
        if (below.empty() || below.front() != '/') return refused;
        below.remove_prefix(1);
    }
    const auto names = plainNames(below);
    if (!names || names->empty()) return refused;

    auto opened = PinnedFolder::openAnchor(std::filesystem::path(std::string(anchorText)));
    if (auto* failure = std::get_if<std::string>(&opened)) return *failure;
    PinnedFolder folder = std::move(std::get<PinnedFolder>(opened));
    for (std::size_t i = 0; i + 1 < names->size(); ++i) {
        auto child = folder.openChild((*names)[i]);
        if (auto* failure = std::get_if<std::string>(&child)) return *failure;
        folder = std::move(std::get<PinnedFolder>(child));
    }
    return PinnedItem{std::move(folder), names->back()};
}

}  // namespace kestrow
