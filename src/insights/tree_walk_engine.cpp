#include "insights/tree_walk_engine.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <thread>

namespace kestrow {
namespace {

constexpr unsigned kBaseMask = STATX_TYPE | STATX_INO | STATX_NLINK | STATX_BLOCKS;
constexpr unsigned kWorkersPerCore = 4;
constexpr unsigned kMostWorkers = 16;
constexpr int kDescriptorsPerWorker = 256;
constexpr std::size_t kListingBuffer = 32 * 1024;
// Offsets in the kernel's struct linux_dirent64 (d_ino, d_off, d_reclen, d_type, d_name).
constexpr std::size_t kRecordLengthOffset = 16;
constexpr std::size_t kNameOffset = 19;

// Open folders beyond this many are read, closed, and their subfolders opened by full path, so
// that a deep tree cannot run the process out of descriptors.
int descriptorLimit(unsigned workers) {
    int limit = kDescriptorsPerWorker * static_cast<int>(workers);
    rlimit files{};
    if (::getrlimit(RLIMIT_NOFILE, &files) == 0 && files.rlim_cur != RLIM_INFINITY) {
        limit = std::min(limit, std::max(16, static_cast<int>(files.rlim_cur / 2)));
    }
    return limit;
}

std::uint64_t deviceOf(const struct statx& info) {
    return makedev(info.stx_dev_major, info.stx_dev_minor);
}

std::int64_t blocksOf(const struct statx& info) {
    return static_cast<std::int64_t>(info.stx_blocks) * 512;
}

}  // namespace

unsigned TreeWalkEngine::workerCount(unsigned requested) {
    if (requested != 0) return std::min(requested, kMostWorkers);
    // On a cold cache most workers wait for the disk; a few per core keep both the cores and the
    // disk's queue busy, and cost next to nothing on a warm one.
    const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    return std::clamp(kWorkersPerCore * cores, kWorkersPerCore, kMostWorkers);
}

TreeWalkEngine::TreeWalkEngine(TreeWalkVisitor& visitor, const TreeWalk::Options& options,
                               unsigned statxMask)
    : visitor_(visitor),
      options_(options),
      mask_(kBaseMask | statxMask),
      workers_(workerCount(options.threads)),
      descriptorLimit_(descriptorLimit(workers_)) {}

TreeWalkEngine::~TreeWalkEngine() {
    for (TreeWalkFolder* folder : kept_) delete folder;
}

void TreeWalkEngine::run(const std::vector<std::filesystem::path>& roots) {
    // Nothing to walk: an empty answer now. A worker would otherwise wait for work that no other
    // worker exists to hand it.
    if (roots.empty()) return;
    for (std::size_t i = 0; i < roots.size(); ++i) {
        auto* root = new TreeWalkFolder;
        root->path = roots[i].string();
        root->index = static_cast<std::uint32_t>(i);
        shared_.push_back(root);
    }
    running_ = workers_;
    if (workers_ == 1) {
        work(0);
        return;
    }
    std::vector<std::thread> threads;
    threads.reserve(workers_);
    for (unsigned worker = 0; worker < workers_; ++worker) {
        try {
            threads.emplace_back([this, worker] { work(worker); });
        } catch (const std::system_error&) {
            // Fewer threads than planned: the end of the walk is when those that run are idle.
            const std::lock_guard lock(mutex_);
            running_ = std::max<unsigned>(1, worker);
            if (idle_ >= running_ && worker > 0) {
                done_ = true;
                wake_.notify_all();
            }
            break;
        }
    }
    if (threads.empty()) work(0);
    for (auto& thread : threads) thread.join();
}

void TreeWalkEngine::work(unsigned worker) {
    Scratch scratch;
    scratch.buffer.resize(kListingBuffer);
    Stack& stack = scratch.stack;
    while (nextFolder(stack)) {
        TreeWalkFolder* folder = stack.back();
        stack.pop_back();
        if (stopped()) {
            // Wound down, not walked: the folder completes as it stands, so that its parents
            // complete and every folder is freed.
            release(worker, folder);
            continue;
        }
        walk(worker, folder, scratch);
        if (hungry_.load(std::memory_order_relaxed) > 0 && stack.size() > 1) {
            const std::lock_guard lock(mutex_);
            shared_.push_back(stack.front());
            stack.pop_front();
            wake_.notify_one();
        }
    }
}

bool TreeWalkEngine::nextFolder(Stack& stack) {
    if (!stack.empty()) return true;
    std::unique_lock lock(mutex_);
    while (shared_.empty() && !done_) {
        if (++idle_ >= running_) {
            // Nobody holds work any more, so nobody can make more.
            done_ = true;
            wake_.notify_all();
            break;
        }
        hungry_.fetch_add(1);
        wake_.wait(lock);
        hungry_.fetch_sub(1);
        --idle_;
    }
    if (shared_.empty()) return false;
    stack.push_back(shared_.front());
    shared_.pop_front();
    return true;
}

void TreeWalkEngine::walk(unsigned worker, TreeWalkFolder* folder, Scratch& scratch) {
    auto& [stack, buffer, children] = scratch;
    switch (open(worker, *folder)) {
        case Opened::yes:
            break;
        case Opened::unreadable:
            skipped_.fetch_add(1);
            release(worker, folder);
            return;
        case Opened::vanished:
            release(worker, folder);
            return;
        case Opened::absent:
            delete folder;
            return;
    }
    children.clear();
    std::int64_t bytes = 0;
    std::uint32_t index = 0;
    const int fd = folder->fd;
    while (!stopped()) {
        const long length = ::syscall(SYS_getdents64, fd, buffer.data(), buffer.size());
        if (length == 0) break;
        if (length < 0) {
            if (errno == EINTR) continue;
            skipped_.fetch_add(1);  // what was read so far still counts
            break;
        }
        for (std::size_t offset = 0; offset < static_cast<std::size_t>(length);) {
            const char* record = buffer.data() + offset;
            std::uint16_t recordLength = 0;
            std::memcpy(&recordLength, record + kRecordLengthOffset, sizeof recordLength);
            offset += recordLength;
            const char* name = record + kNameOffset;
            if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'))) {
                continue;
            }
            const std::uint32_t entryIndex = index++;
            struct statx info {};
            if (::statx(fd, name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, mask_, &info) != 0) {
                continue;  // gone since listed, or not ours to look at: nothing to count
            }
            if (!S_ISDIR(info.stx_mode)) {
                bytes += visitor_.entry(worker, *folder, name, entryIndex, info);
                continue;
            }
            if (deviceOf(info) != folder->device) continue;  // a mount point: not entered
            if (TreeWalkFolder* child = subfolder(*folder, name, entryIndex, info)) {
                children.push_back(child);
            }
        }
    }
    folder->total.fetch_add(bytes);
    if (children.empty()) {
        closeDescriptor(*folder);
    } else {
        const int count = static_cast<int>(children.size());
        folder->pending.fetch_add(count);
        folder->unopened.store(count);
        if (openDescriptors_.load(std::memory_order_relaxed) > descriptorLimit_) {
            closeDescriptor(*folder);
        }
        // Reversed, so that the stack hands them out in the order they were met.
        for (auto child = children.rbegin(); child != children.rend(); ++child) {
            stack.push_back(*child);
        }
    }
    release(worker, folder);
}

TreeWalkFolder* TreeWalkEngine::subfolder(TreeWalkFolder& parent, const char* name,
                                          std::uint32_t index, const struct statx& info) const {
    if (!options_.skipObjects.empty() &&
        options_.skipObjects.contains({deviceOf(info), info.stx_ino})) {
        return nullptr;
    }
    std::string path = parent.childPath(name);
    if (skip(path)) return nullptr;
    auto* child = new TreeWalkFolder;
    child->parent = &parent;
    child->nameOffset = path.size() - std::strlen(name);
    child->path = std::move(path);
    child->index = index;
    child->depth = parent.depth + 1;
    child->device = parent.device;
    child->total.store(blocksOf(info), std::memory_order_relaxed);
    return child;
}

TreeWalkEngine::Opened TreeWalkEngine::open(unsigned worker, TreeWalkFolder& folder) {
    if (folder.parent == nullptr) return openRoot(worker, folder);
    TreeWalkFolder& parent = *folder.parent;
    const bool relative = parent.fd >= 0;
    const int fd =
        ::openat(relative ? parent.fd : AT_FDCWD,
                 relative ? folder.path.c_str() + folder.nameOffset : folder.path.c_str(),
                 O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    const int error = errno;
    if (parent.unopened.fetch_sub(1) == 1) closeDescriptor(parent);
    if (fd < 0) {
        // Gone or replaced since it was listed: it still counts as what it was then.
        const bool vanished = error == ENOENT || error == ENOTDIR || error == ELOOP;
        return vanished ? Opened::vanished : Opened::unreadable;
    }
    folder.fd = fd;
    openDescriptors_.fetch_add(1, std::memory_order_relaxed);
    return Opened::yes;
}

TreeWalkEngine::Opened TreeWalkEngine::openRoot(unsigned worker, TreeWalkFolder& folder) {
    // A root is what the caller named, so a symbolic link there is followed.
    const int fd = ::open(folder.path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    struct statx info {};
    if (fd < 0) {
        if (::statx(AT_FDCWD, folder.path.c_str(), AT_NO_AUTOMOUNT, mask_, &info) != 0) {
            return Opened::absent;
        }
        if (!S_ISDIR(info.stx_mode)) {
            visitor_.rootEntry(worker, folder, info);
            return Opened::absent;
        }
        folder.device = deviceOf(info);
        folder.total.store(blocksOf(info));
        return Opened::unreadable;
    }
    if (::statx(fd, "", AT_EMPTY_PATH, mask_, &info) != 0) {
        ::close(fd);
        return Opened::unreadable;
    }
    folder.device = deviceOf(info);
    folder.total.store(blocksOf(info));
    folder.fd = fd;
    openDescriptors_.fetch_add(1, std::memory_order_relaxed);
    return Opened::yes;
}

void TreeWalkEngine::closeDescriptor(TreeWalkFolder& folder) {
    if (folder.fd < 0) return;
    ::close(folder.fd);
    folder.fd = -1;
    openDescriptors_.fetch_sub(1, std::memory_order_relaxed);
}

bool TreeWalkEngine::skip(const std::string& path) const {
    if (!options_.skipFolder) return false;
    try {
        return options_.skipFolder(std::filesystem::path(path));
    } catch (...) {
        return false;  // a rule that cannot decide leaves the folder in
    }
}

void TreeWalkEngine::release(unsigned worker, TreeWalkFolder* folder) {
    while (folder != nullptr && folder->pending.fetch_sub(1) == 1) {
        closeDescriptor(*folder);
        visitor_.folderDone(worker, *folder);
        TreeWalkFolder* parent = folder->parent;
        const std::int64_t total = folder->total.load();
        const bool holdsLinks = folder->holdsLinks.load();
        if (parent != nullptr) {
            parent->total.fetch_add(total);
            if (holdsLinks) parent->holdsLinks.store(true);
        } else {
            rootTotal_.fetch_add(total);
        }
        if (holdsLinks) {
            const std::lock_guard lock(keptMutex_);
            kept_.push_back(folder);
        } else {
            delete folder;
        }
        folder = parent;
    }
}

}  // namespace kestrow
