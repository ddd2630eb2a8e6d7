#include "insights/tree_walk_link_ledger.h"

namespace kestrow {

bool TreeWalkLinkLedger::claim(std::uint64_t device, std::uint64_t inode, TreeWalkFolder& folder,
                               std::uint32_t index, std::int64_t bytes) {
    const std::lock_guard lock(mutex_);
    const auto [it, added] = claims_.try_emplace(Key{device, inode}, Claim{&folder, index, bytes});
    if (added) return true;
    Claim& claim = it->second;
    if (!comesBefore(&folder, index, claim.folder, claim.index)) return false;
    claim.folder = &folder;
    claim.index = index;
    return true;
}

std::int64_t TreeWalkLinkLedger::settle() {
    std::int64_t sum = 0;
    for (const auto& [key, claim] : claims_) {
        for (TreeWalkFolder* folder = claim.folder; folder != nullptr; folder = folder->parent) {
            folder->linkedBytes += claim.bytes;
        }
        sum += claim.bytes;
    }
    return sum;
}

bool TreeWalkLinkLedger::comesBefore(const TreeWalkFolder* aFolder, std::uint32_t a,
                                     const TreeWalkFolder* bFolder, std::uint32_t b) {
    // Climb to the folder both entries are in, remembering through which entry of it each one
    // is reached; the walk meets the smaller of those entries first.
    while (aFolder->depth > bFolder->depth) {
        a = aFolder->index;
        aFolder = aFolder->parent;
    }
    while (bFolder->depth > aFolder->depth) {
        b = bFolder->index;
        bFolder = bFolder->parent;
    }
    while (aFolder != bFolder) {
        a = aFolder->index;
        b = bFolder->index;
        aFolder = aFolder->parent;
        bFolder = bFolder->parent;
        if (aFolder == nullptr || bFolder == nullptr) break;  // different roots: a and b are theirs
    }
    return a < b;
}

}  // namespace kestrow
