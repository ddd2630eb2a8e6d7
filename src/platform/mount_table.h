#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "shares/mount_entry.h"

namespace kestrow {

// What is mounted now. Safe to call from any thread; it blocks for a bounded time (a desktop
// mount service that hangs counts as unreadable), so it is never called on the main thread.
class MountTable {
public:
    virtual ~MountTable() = default;
    // Absent when the table could not be read.
    virtual std::optional<std::vector<MountEntry>> current() = 0;
    // Names this boot of the machine: a mount never outlives it. 0 when it cannot be read.
    virtual std::int64_t bootIdentity() = 0;
    // The folder whose direct, non-hidden children are user volumes (macOS "/Volumes/"; Linux
    // "$XDG_RUNTIME_DIR/gvfs/"), ending in "/".
    virtual std::string volumesRoot() const = 0;
};

}  // namespace kestrow
