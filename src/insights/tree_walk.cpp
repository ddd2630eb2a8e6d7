#include "insights/tree_walk.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <atomic>
#include <chrono>

#include "insights/tree_walk_engine.h"
#include "insights/tree_walk_link_ledger.h"

namespace kestrow {
namespace {

std::int64_t blocksOf(const struct statx& info) {
    return static_cast<std::int64_t>(info.stx_blocks) * 512;
}

class SizesVisitor final : public TreeWalkVisitor {
public:
    SizesVisitor(std::int64_t minimum, unsigned workers) : minimum_(minimum), found_(workers) {}

    std::int64_t entry(unsigned, TreeWalkFolder& folder, std::string_view, std::uint32_t index,
                       const struct statx& info) override {
        const std::int64_t bytes = blocksOf(info);
        if (info.stx_nlink <= 1) return bytes;
        // Counted where the walk in directory order meets it first, once the walk has ended.
        if (links_.claim(makedev(info.stx_dev_major, info.stx_dev_minor), info.stx_ino, folder,
                         index, bytes)) {
            folder.holdsLinks.store(true);
        }
        return 0;
    }

    void rootEntry(unsigned, const TreeWalkFolder&, const struct statx& info) override {
        rootFiles_.fetch_add(blocksOf(info));
    }

    void folderDone(unsigned worker, const TreeWalkFolder& folder) override {
        if (folder.holdsLinks.load()) return;  // its total is settled when the walk ends
        const std::int64_t total = folder.total.load();
        if (total >= minimum_) found_[worker].emplace_back(folder.path, total);
    }

    TreeWalk::FolderSizes finish(const TreeWalkEngine& engine) {
        TreeWalk::FolderSizes result;
        const std::int64_t linked = links_.settle();
        for (const TreeWalkFolder* folder : engine.kept()) {
            const std::int64_t total = folder->total.load() + folder->linkedBytes;
            if (total >= minimum_) result.sizes.emplace(folder->path, total);
        }
        for (auto& list : found_) {
            for (auto& [path, total] : list) result.sizes.emplace(std::move(path), total);
        }
        result.skipped = engine.skipped();
        result.totalBytes = engine.rootTotal() + linked + rootFiles_.load();
        return result;
    }

private:
    const std::int64_t minimum_;
    std::vector<std::vector<std::pair<std::string, std::int64_t>>> found_;  // per worker
    TreeWalkLinkLedger links_;
    std::atomic<std::int64_t> rootFiles_{0};
};

class FilesVisitor final : public TreeWalkVisitor {
public:
    FilesVisitor(std::int64_t minimum, unsigned workers) : minimum_(minimum), found_(workers) {}

    std::int64_t entry(unsigned worker, TreeWalkFolder& folder, std::string_view name,
                       std::uint32_t, const struct statx& info) override {
        if (!wanted(info)) return 0;
        const TreeWalkFolder* root = &folder;
        while (root->parent != nullptr) root = root->parent;
        found_[worker].push_back(file(folder.childPath(name), info, root->index));
        return 0;
    }

    void rootEntry(unsigned worker, const TreeWalkFolder& root, const struct statx& info) override {
        if (wanted(info)) found_[worker].push_back(file(root.path, info, root.index));
    }

    void folderDone(unsigned, const TreeWalkFolder&) override {}

    TreeWalk::Files finish(const TreeWalkEngine& engine) {
        TreeWalk::Files result;
        std::size_t count = 0;
        for (const auto& list : found_) count += list.size();
        result.files.reserve(count);
        for (auto& list : found_) {
            std::move(list.begin(), list.end(), std::back_inserter(result.files));
        }
        std::sort(result.files.begin(), result.files.end(),
                  [](const TreeWalk::File& a, const TreeWalk::File& b) { return a.path < b.path; });
        result.skipped = engine.skipped();
        return result;
    }

private:
    bool wanted(const struct statx& info) const {
        return S_ISREG(info.stx_mode) && static_cast<std::int64_t>(info.stx_size) >= minimum_;
    }

    static TreeWalk::File file(std::string path, const struct statx& info, std::uint32_t root) {
        const auto modified = std::chrono::seconds(info.stx_mtime.tv_sec) +
                              std::chrono::nanoseconds(info.stx_mtime.tv_nsec);
        return {std::move(path), static_cast<std::int64_t>(info.stx_size),
                blocksOf(info),  makedev(info.stx_dev_major, info.stx_dev_minor),
                info.stx_ino,    WallTime(std::chrono::duration_cast<WallTime::duration>(modified)),
                info.stx_nlink,  root};
    }

    const std::int64_t minimum_;
    std::vector<std::vector<TreeWalk::File>> found_;  // per worker
};

}  // namespace

TreeWalk::FolderSizes TreeWalk::folderSizes(const std::vector<std::filesystem::path>& roots,
                                            std::int64_t minimumBytes, const Options& options) {
    const unsigned workers = TreeWalkEngine::workerCount(options.threads);
    SizesVisitor visitor(minimumBytes, workers);
    TreeWalkEngine engine(visitor, options, 0);
    engine.run(roots);
    return visitor.finish(engine);
}

TreeWalk::Files TreeWalk::files(const std::vector<std::filesystem::path>& roots,
                                std::int64_t minimumSize, const Options& options) {
    const unsigned workers = TreeWalkEngine::workerCount(options.threads);
    FilesVisitor visitor(minimumSize, workers);
    TreeWalkEngine engine(visitor, options, STATX_SIZE | STATX_MTIME);
    engine.run(roots);
    return visitor.finish(engine);
}

}  // namespace kestrow
