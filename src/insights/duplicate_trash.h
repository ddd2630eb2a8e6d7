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
    // What emptying the Trash gives back: the private sizes (nothing for a copy whose blocks
    // another hard link keeps, nothing for one whose size is not known).
    std::int64_t movedBytes = 0;
    int skipped = 0;  // changed since the scan, or the last copy
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
// group is still intact. The Trash is handed the copy's anchor and scanned identity, so that
// what moves is what was checked. After each move the copies that were intact must still be:
// one that went with it was the same file reached another way, and the moved copy is put back.
DuplicateTrashReport trashDuplicates(const std::set<std::string>& selected,
                                     const std::vector<DuplicateGroup>& groups,
                                     const KeepPreference& preference, Trash& trash);

// Whether the file at `file.path` is still the one the scan saw: present, a regular file (not a
// link to one), same device, inode, size and modification time.
bool unchangedSinceScan(const DuplicateFile& file);

// What the Trash is told to expect of a scanned copy.
TrashItemIdentity scannedIdentity(const DuplicateFile& file);

}  // namespace kestrow
