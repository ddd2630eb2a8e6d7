#include "insights/private_size.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#ifdef __linux__
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#endif

namespace kestrow {
namespace {

struct FileHandle {
    int fd;
    ~FileHandle() {
        if (fd >= 0) ::close(fd);
    }
};

#ifdef __linux__
// Sums the extents not marked shared, a batch of extents per call. Absent when the file system
// has no extent maps (or the call fails), so that the caller falls back to the allocated size.
std::optional<std::int64_t> unsharedExtentBytes(int fd) {
    constexpr std::size_t kBatch = 128;
    std::vector<std::byte> storage(sizeof(fiemap) + kBatch * sizeof(fiemap_extent));
    auto* map = reinterpret_cast<fiemap*>(storage.data());
    std::uint64_t start = 0;
    std::int64_t total = 0;
    for (;;) {
        std::memset(map, 0, sizeof(fiemap));
        map->fm_start = start;
        map->fm_length = FIEMAP_MAX_OFFSET - start;
        // No FIEMAP_FLAG_SYNC: it would write the file out first. Blocks not yet allocated show as
        // delayed extents of the right length, which is what counts here.
        map->fm_extent_count = kBatch;
        if (::ioctl(fd, FS_IOC_FIEMAP, map) != 0) return std::nullopt;
        if (map->fm_mapped_extents == 0) return total;
        bool last = false;
        for (std::uint32_t i = 0; i < map->fm_mapped_extents; ++i) {
            const fiemap_extent& extent = map->fm_extents[i];
            if ((extent.fe_flags & FIEMAP_EXTENT_SHARED) == 0)
                total += static_cast<std::int64_t>(extent.fe_length);
            if ((extent.fe_flags & FIEMAP_EXTENT_LAST) != 0) last = true;
            start = extent.fe_logical + extent.fe_length;
        }
        if (last || map->fm_mapped_extents < kBatch) return total;
    }
}
#endif

}  // namespace

std::optional<std::int64_t> measurePrivateSize(const std::filesystem::path& file) {
    const FileHandle handle{::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK)};
    if (handle.fd < 0) return std::nullopt;
    struct stat info {};
    if (::fstat(handle.fd, &info) != 0 || !S_ISREG(info.st_mode)) return std::nullopt;
#ifdef __linux__
    if (const auto unshared = unsharedExtentBytes(handle.fd)) return unshared;
#endif
    return static_cast<std::int64_t>(info.st_blocks) * 512;
}

}  // namespace kestrow
