#pragma once

#include <sys/stat.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

namespace kestrow {

// A folder of a running walk. It lives while its subtree is being walked; a folder below which a
// hard-linked file was charged lives on until the walk ends, because which folder that file
// counts in is only settled then.
struct TreeWalkFolder {
    TreeWalkFolder* parent = nullptr;
    std::string path;            // as the walk spells it: the root as given, joined with "/"
    std::size_t nameOffset = 0;  // where the folder's own name starts in path
    std::uint32_t index = 0;     // among its parent's entries, in directory order; roots: order
    std::uint32_t depth = 0;     // roots are 0
    std::uint64_t device = 0;    // the root's file system: nothing on another one is entered
    int fd = -1;                 // open while subfolders still have to be opened through it
    std::atomic<std::int64_t> total{0};   // own blocks, entries read, subfolders completed
    std::atomic<int> pending{1};          // the folder's own listing plus unfinished subfolders
    std::atomic<int> unopened{0};         // subfolders that still need fd
    std::atomic<bool> holdsLinks{false};  // a hard-linked file was charged in this subtree
    std::int64_t linkedBytes = 0;  // hard-linked files settled here or below, once the walk ends

    std::string_view name() const { return std::string_view(path).substr(nameOffset); }
    // The path of an entry of this folder.
    std::string childPath(std::string_view childName) const {
        std::string result;
        result.reserve(path.size() + 1 + childName.size());
        result = path;
        if (result.empty() || result.back() != '/') result += '/';
        result += childName;
        return result;
    }
};

// What one walk does with the entries it meets; called from several threads at once, each call
// with the index of the worker thread making it.
class TreeWalkVisitor {
public:
    virtual ~TreeWalkVisitor() = default;
    // Everything that is not a folder (files, symbolic links, devices...); answers the bytes to
    // add to the folder's total.
    virtual std::int64_t entry(unsigned worker, TreeWalkFolder& folder, std::string_view name,
                               std::uint32_t index, const struct statx& info) = 0;
    // A root that is not a folder.
    virtual void rootEntry(unsigned worker, const TreeWalkFolder& root,
                           const struct statx& info) = 0;
    // A folder whose subtree is complete; its total holds everything except hard-linked files
    // charged below it (holdsLinks).
    virtual void folderDone(unsigned worker, const TreeWalkFolder& folder) = 0;
};

}  // namespace kestrow
