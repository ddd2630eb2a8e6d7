#pragma once

#include <cstdint>
#include <mutex>
#include <unordered_map>

#include "insights/tree_walk_folder.h"

namespace kestrow {

// Decides which folder a file with several hard links counts in: the folder where a single
// depth-first walk in directory order meets it first, as du charges it, whatever order the
// worker threads happen to meet its names in. Only files with more than one link come here, so
// the ledger stays small.
class TreeWalkLinkLedger {
public:
    // True when `folder` now holds the file: no name of it met so far comes earlier in the walk.
    bool claim(std::uint64_t device, std::uint64_t inode, TreeWalkFolder& folder,
               std::uint32_t index, std::int64_t bytes);
    // Once the walk has ended: adds each file to the folder that holds it and to every folder
    // above that; answers the bytes of all of them.
    std::int64_t settle();

    // Whether entry `a` of folder `aFolder` comes before entry `b` of `bFolder` in a depth-first
    // walk in directory order (roots in the order given).
    static bool comesBefore(const TreeWalkFolder* aFolder, std::uint32_t a,
                            const TreeWalkFolder* bFolder, std::uint32_t b);

private:
    struct Key {
        std::uint64_t device;
        std::uint64_t inode;
        bool operator==(const Key&) const = default;
    };
    struct KeyHash {
        std::size_t operator()(const Key& key) const {
            return std::hash<std::uint64_t>()(key.inode * 0x9E3779B97F4A7C15ull ^ key.device);
        }
    };
    struct Claim {
        TreeWalkFolder* folder;
        std::uint32_t index;
        std::int64_t bytes;
    };

    std::mutex mutex_;
    std::unordered_map<Key, Claim, KeyHash> claims_;
};

}  // namespace kestrow
