#include "support/file_set_aside.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "support/clock.h"
#include "support/iso_date.h"

namespace kestrow {

std::optional<std::filesystem::path> setFileAside(const std::filesystem::path& file,
                                                  std::string* error) {
    struct stat info {};
    if (::lstat(file.c_str(), &info) != 0) {
        if (error != nullptr) *error = std::strerror(errno);
        return std::nullopt;
    }
    const std::string base = file.string() + ".unreadable-" +
                             formatIsoDate(WallTime{std::chrono::seconds{info.st_mtim.tv_sec}});
    for (int attempt = 1; attempt <= 100; ++attempt) {
        const std::string target = attempt == 1 ? base : fmt::format("{}-{}", base, attempt);
        int moved = ::renameat2(AT_FDCWD, file.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE);
        if (moved != 0 && errno == EINVAL) {
            // A file system without the no-replace flag; the caller's lock keeps our own
            // processes from racing between the check and the rename.
            struct stat taken {};
            if (::lstat(target.c_str(), &taken) == 0) {
                errno = EEXIST;
            } else {
                moved = ::rename(file.c_str(), target.c_str());
            }
        }
        if (moved == 0) return target;
        if (errno != EEXIST) break;
    }
    if (error != nullptr) *error = std::strerror(errno);
    return std::nullopt;
}

}  // namespace kestrow
