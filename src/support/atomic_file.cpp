#include "support/atomic_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

namespace kestrow {
namespace {

bool fail(std::string* error, std::string_view what, int code) {
    if (error != nullptr) *error = std::string(what) + ": " + std::strerror(code);
    return false;
}

// A write killed between creating its temporary file and renaming it leaves the file behind.
// One is ours when its name is exactly what mkstemp made from our pattern, it is a regular file
// of our own, and it was last written long before the temporary file just made (the file
// system's clock on both sides, so no clock of ours is needed); a write under way elsewhere is
// seconds old at most.
constexpr std::int64_t kStaleTemporarySeconds = 15 * 60;

bool isTemporaryNameOf(std::string_view name, std::string_view target) {
    constexpr std::string_view kAlphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    if (name.size() != target.size() + 8 || name[0] != '.' ||
        name.substr(1, target.size()) != target || name[target.size() + 1] != '.') {
        return false;
    }
    return name.substr(target.size() + 2).find_first_not_of(kAlphabet) == std::string_view::npos;
}

void removeStaleTemporaries(const std::filesystem::path& folder, std::string_view target,
                            const std::string& fresh, int freshFd) {
    struct stat made {};
    if (::fstat(freshFd, &made) != 0) return;
    const int dir = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir < 0) return;  // an unreadable folder cannot be listed; the write goes on without
    DIR* listing = ::fdopendir(dir);
    if (listing == nullptr) {
        ::close(dir);
        return;
    }
    const std::string freshName = std::filesystem::path(fresh).filename().string();
    while (const dirent* entry = ::readdir(listing)) {
        const std::string_view name = entry->d_name;
        if (name == freshName || !isTemporaryNameOf(name, target)) continue;
        struct stat info {};
        if (::fstatat(dir, entry->d_name, &info, AT_SYMLINK_NOFOLLOW) != 0) continue;
        if (!S_ISREG(info.st_mode) || info.st_uid != ::geteuid()) continue;
        if (made.st_mtim.tv_sec - info.st_mtim.tv_sec < kStaleTemporarySeconds) continue;
        ::unlinkat(dir, entry->d_name, 0);
    }
    ::closedir(listing);
}

}  // namespace

std::optional<std::string> readFile(const std::filesystem::path& path, std::string* error,
                                    std::size_t limit) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) {
        fail(error, path.string(), errno);
        return std::nullopt;
    }
    const auto refuse = [&](int code) -> std::optional<std::string> {
        ::close(fd);
        fail(error, path.string(), code);
        return std::nullopt;
    };
    struct stat info {};
    if (::fstat(fd, &info) != 0) return refuse(errno);
    if (S_ISDIR(info.st_mode)) return refuse(EISDIR);
    if (!S_ISREG(info.st_mode)) {
        ::close(fd);
        if (error != nullptr) *error = path.string() + ": not a regular file";
        return std::nullopt;
    }
    // /proc and /sys give a size of zero or one page whatever they hold, so the limit is kept
    // while reading, not judged from the size.
    std::string content;
    char buffer[65536];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0) {
            if (errno == EINTR) continue;
            return refuse(errno);
        }
        if (n == 0) break;
        if (static_cast<std::size_t>(n) > limit - content.size()) return refuse(EFBIG);
        content.append(buffer, static_cast<std::size_t>(n));
    }
    ::close(fd);
    return content;
}

bool writeFileAtomically(const std::filesystem::path& path, std::string_view data,
                         std::string* error) {
    const std::filesystem::path folder = path.parent_path().empty() ? "." : path.parent_path();
    std::error_code ec;
    if (!std::filesystem::exists(folder, ec)) {
        std::filesystem::create_directories(folder, ec);
        if (ec) return fail(error, "Cannot create " + folder.string(), ec.value());
        std::filesystem::permissions(folder, std::filesystem::perms::owner_all, ec);
    }

    std::string temp = (folder / ("." + path.filename().string() + ".XXXXXX")).string();
    const int fd = ::mkstemp(temp.data());
    if (fd < 0) return fail(error, "Cannot write in " + folder.string(), errno);

    removeStaleTemporaries(folder, path.filename().string(), temp, fd);

    const auto abandon = [&](std::string_view what, int code) {
        ::close(fd);
        ::unlink(temp.c_str());
        return fail(error, what, code);
    };
    std::size_t written = 0;
    while (written < data.size()) {
        const ssize_t n = ::write(fd, data.data() + written, data.size() - written);
        if (n < 0) {
            if (errno == EINTR) continue;
            return abandon("Cannot write " + path.string(), errno);
        }
        written += static_cast<std::size_t>(n);
    }
    if (::fsync(fd) != 0) return abandon("Cannot flush " + path.string(), errno);
    if (::close(fd) != 0) {
        const int code = errno;
        ::unlink(temp.c_str());
        return fail(error, "Cannot close " + path.string(), code);
    }
    if (::rename(temp.c_str(), path.c_str()) != 0) {
        const int code = errno;
        ::unlink(temp.c_str());
        return fail(error, "Cannot replace " + path.string(), code);
    }
    // Make the rename itself durable; a failure here does not undo a completed replace.
    if (const int dir = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); dir >= 0) {
        ::fsync(dir);
        ::close(dir);
    }
    return true;
}

}  // namespace kestrow
