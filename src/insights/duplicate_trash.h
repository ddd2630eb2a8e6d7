#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "insights/duplicate_group.h"
#include "platform/trash.h"

namespace kestrow {

struct DuplicateTrashReport {
    std::vector<std::string> moved;  // paths, in the order they went
    std::int64_t movedBytes = 0;     // private sizes where known, else logical sizes
    int skipped = 0;                 // changed since the scan, or the last copy
    std::vector<std::string> failures;
    bool operator==(const DuplicateTrashReport&) const = default;

    // "Moved 3 files to the Trash; 1 couldn't be moved; 2 skipped (changed since the scan, or
    // the last copy)".
    std::string statusLine() const;
};

// Moves the selected copies to the Trash, one by one, never every copy of a group: when the
// selection covers a whole group, the copy keepOrder() puts first stays. Each copy is looked at
// again right before it goes and stays when it is no longer the file that was scanned (gone,
// resized, modified, replaced by a link or another file) or when no other scanned copy of its
// group is still intact.
DuplicateTrashReport trashDuplicates(const std::set<std::string>& selected,
                                     const std::vector<DuplicateGroup>& groups,
                                     const KeepPreference& preference, Trash& trash);

// Whether the file at `file.path` is still the one the scan saw: present, a regular file (not a
// link to one), same inode, size and modification time.
bool unchangedSinceScan(const DuplicateFile& file);

}  // namespace kestrow
