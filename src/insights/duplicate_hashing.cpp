#include "insights/duplicate_hashing.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <map>
#include <memory>
#include <numeric>
#include <system_error>
#include <thread>

#include "support/sha256.h"

namespace kestrow {
namespace {

constexpr std::size_t kChunkBytes = 1'048'576;

struct FileHandle {
    int fd;
    ~FileHandle() {
        if (fd >= 0) ::close(fd);
    }
};

// O_NONBLOCK keeps the open itself from waiting on a FIFO; O_NOATIME is refused (EPERM) on files
// the process does not own, and the open then goes ahead the ordinary way.
int openForHashing(const std::string& path) {
    const int flags = O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | O_NOFOLLOW;
#ifdef O_NOATIME
    const int fd = ::open(path.c_str(), flags | O_NOATIME);
    if (fd >= 0 || errno != EPERM) return fd;
#endif
    return ::open(path.c_str(), flags);
}

unsigned threadCount(unsigned requested, std::size_t work) {
    const unsigned threads =
        requested != 0 ? requested : std::max(1U, std::thread::hardware_concurrency());
    return static_cast<unsigned>(std::min<std::size_t>(threads, std::max<std::size_t>(work, 1)));
}

using Digests = std::vector<std::optional<std::string>>;

// Biggest first, so that no thread is left with one huge file at the end. Each thread reads
// through its own buffer; nothing else grows with file sizes.
Digests hashAll(const std::vector<DuplicateFile>& files, std::optional<std::int64_t> limit,
                unsigned requestedThreads, const std::stop_token& stop) {
    Digests digests(files.size());
    std::vector<std::size_t> order(files.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b) { return files[a].size > files[b].size; });
    const std::size_t bufferSize =
        limit ? std::clamp<std::size_t>(static_cast<std::size_t>(std::max<std::int64_t>(*limit, 1)),
                                        1, kChunkBytes)
              : kChunkBytes;
    std::atomic<std::size_t> next{0};
    const auto work = [&] {
        const auto buffer = std::make_unique_for_overwrite<std::byte[]>(bufferSize);
        const std::span<std::byte> chunk(buffer.get(), bufferSize);
        for (std::size_t i = next++; i < order.size() && !stop.stop_requested(); i = next++) {
            const DuplicateFile& file = files[order[i]];
            digests[order[i]] = hashDuplicateCandidate(file.path, &file, limit, chunk, stop);
        }
    };
    const unsigned threads = threadCount(requestedThreads, files.size());
    std::vector<std::jthread> helpers;
    for (unsigned t = 1; t < threads; ++t) {
        // Without another thread the calling one still hashes everything, only slower.
        try {
            helpers.emplace_back(work);
        } catch (const std::system_error&) {
            break;
        }
    }
    work();
    helpers.clear();  // joins: every helper looks at the stop before each chunk
    return digests;
}

}  // namespace

std::optional<std::string> hashDuplicateCandidate(const std::string& path,
                                                  const DuplicateFile* expected,
                                                  std::optional<std::int64_t> limit,
                                                  std::span<std::byte> buffer,
                                                  std::stop_token stop) {
    if (buffer.empty() || stop.stop_requested()) return std::nullopt;
    const FileHandle handle{openForHashing(path)};
    if (handle.fd < 0) return std::nullopt;
    struct stat info {};
    if (::fstat(handle.fd, &info) != 0 || !S_ISREG(info.st_mode)) return std::nullopt;
    if (expected != nullptr && (static_cast<std::uint64_t>(info.st_dev) != expected->device ||
                                static_cast<std::uint64_t>(info.st_ino) != expected->inode)) {
        return std::nullopt;
    }
    // O_NONBLOCK only kept the open from hanging on a FIFO swapped in since the walk; reads of a
    // regular file block either way.
    ::fcntl(handle.fd, F_SETFL, ::fcntl(handle.fd, F_GETFL) & ~O_NONBLOCK);
    return Sha256::ofDescriptor(handle.fd, limit, buffer, stop);
}

std::vector<std::vector<DuplicateFile>> splitByDigest(
    const std::vector<std::vector<DuplicateFile>>& sets, std::optional<std::int64_t> limit,
    unsigned threads, std::stop_token stop) {
    std::vector<DuplicateFile> flat;
    for (const auto& set : sets) flat.insert(flat.end(), set.begin(), set.end());
    const Digests digests = hashAll(flat, limit, threads, stop);
    if (stop.stop_requested()) return {};
    std::vector<std::vector<DuplicateFile>> result;
    std::size_t index = 0;
    for (const auto& set : sets) {
        std::map<std::string, std::vector<DuplicateFile>> byDigest;
        for (const auto& file : set) {
            if (const auto& digest = digests[index++]) byDigest[*digest].push_back(file);
        }
        for (auto& [digest, alike] : byDigest)
            if (alike.size() >= 2) result.push_back(std::move(alike));
    }
    return result;
}

}  // namespace kestrow
