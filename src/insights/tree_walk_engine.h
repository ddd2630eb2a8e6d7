#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <mutex>
#include <vector>

#include "insights/tree_walk.h"
#include "insights/tree_walk_folder.h"

namespace kestrow {

// Walks folder trees on a few threads. Each worker goes depth first through its own stack of
// folders and, while another worker has nothing to do, hands it the shallowest folder it has
// waiting (the biggest piece of work it can give away). Folders are read through descriptors
// relative to their parent, so no stat builds a path, and a folder's descriptor stays open only
// until its last subfolder has been opened.
class TreeWalkEngine {
public:
    // statxMask: what the visitor needs of each entry beyond type, inode, links and blocks.
    TreeWalkEngine(TreeWalkVisitor& visitor, const TreeWalk::Options& options, unsigned statxMask);
    ~TreeWalkEngine();
    TreeWalkEngine(const TreeWalkEngine&) = delete;
    TreeWalkEngine& operator=(const TreeWalkEngine&) = delete;

    // Worker threads for a requested count (0: the walk's choice).
    static unsigned workerCount(unsigned requested);

    unsigned workers() const { return workers_; }
    void run(const std::vector<std::filesystem::path>& roots);

    int skipped() const { return skipped_.load(); }
    // The totals of the root folders, hard-linked files left out.
    std::int64_t rootTotal() const { return rootTotal_.load(); }
    // Folders that hold hard-linked files, kept until the engine goes.
    const std::vector<TreeWalkFolder*>& kept() const { return kept_; }

private:
    // vanished: a subfolder removed since it was listed; absent: a root that is no folder.
    enum class Opened { yes, unreadable, vanished, absent };
    using Stack = std::deque<TreeWalkFolder*>;
    // What one worker reuses from folder to folder.
    struct Scratch {
        Stack stack;  // folders waiting, the deepest last
        std::vector<char> buffer;
        std::vector<TreeWalkFolder*> children;
    };

    void work(unsigned worker);
    bool nextFolder(Stack& stack);
    void walk(unsigned worker, TreeWalkFolder* folder, Scratch& scratch);
    // A subfolder to walk, or nothing when the caller's rule leaves it out.
    TreeWalkFolder* subfolder(TreeWalkFolder& parent, const char* name, std::uint32_t index,
                              const struct statx& info) const;
    Opened open(unsigned worker, TreeWalkFolder& folder);
    Opened openRoot(unsigned worker, TreeWalkFolder& folder);
    void closeDescriptor(TreeWalkFolder& folder);
    bool skip(const std::string& path) const;
    bool stopped() const { return options_.stop.stop_requested(); }
    // Drops the folder's own share of its pending count and completes whatever that finishes.
    void release(unsigned worker, TreeWalkFolder* folder);

    TreeWalkVisitor& visitor_;
    const TreeWalk::Options& options_;
    const unsigned mask_;
    const unsigned workers_;
    const int descriptorLimit_;

    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<TreeWalkFolder*> shared_;  // folders handed to whichever worker is idle
    unsigned idle_ = 0;
    unsigned running_ = 1;  // worker threads that really run
    bool done_ = false;
    std::atomic<unsigned> hungry_{0};

    std::atomic<int> openDescriptors_{0};
    std::atomic<int> skipped_{0};
    std::atomic<std::int64_t> rootTotal_{0};
    std::mutex keptMutex_;
    std::vector<TreeWalkFolder*> kept_;
};

}  // namespace kestrow
