#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "support/clock.h"
#include "support/wording.h"

namespace kestrow {

struct DuplicateFile {
    std::string path;
    std::int64_t size = 0;  // logical
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    WallTime modified;
    // What deleting this file would free now: less than its blocks when some of them are shared
    // with a clone, nothing when another hard link keeps them. Absent when it could not be
    // measured.
    std::optional<std::int64_t> privateSize;
    // The file system it is on, named so that every mount of one share reads the same
    // (DuplicateIdentity); empty for the device number alone.
    std::string volume;
    // The scan root that holds it, as the kernel resolves it: the move re-checks every folder
    // from there down. Empty for its own folder.
    std::string anchor;
    bool operator==(const DuplicateFile&) const = default;
};

// Two or more files with the same content, in path order.
struct DuplicateGroup {
    std::vector<DuplicateFile> files;
    bool operator==(const DuplicateGroup&) const = default;

    std::int64_t size() const { return files.empty() ? 0 : files.front().size; }
    bool contains(const std::string& path) const;
};

// Which copy of a group stays.
struct KeepPreference {
    // Copies under these folders are the ones the user filed on purpose.
    std::vector<std::filesystem::path> preferred;
    // Copies here are the likeliest to be strays.
    std::filesystem::path downloads;
};

namespace duplicate_text {
inline constexpr const char* kNone = "No duplicates of 1 MB or more";
inline constexpr const char* kShared =
    "0 bytes to gain now: shared with a clone or a Time Machine snapshot";
inline constexpr const char* kSnapshotsThin =
    " Space returns when Time Machine thins its snapshots.";
inline constexpr const char* kSkippedSuffix = " skipped (changed since the scan, or the last copy)";
}  // namespace duplicate_text

// What trashing all copies but one would free now: every private size added up, less the
// smallest (the copy that stays frees nothing). Absent when any copy's private size is unknown.
std::optional<std::int64_t> reclaimable(const DuplicateGroup& group);

// The group's copies, best one to keep first: copies under a preferred folder, then copies
// outside Downloads, then the oldest modification (the original, not the copy made from it), then
// the shortest path, then path order. Everything after the first is proposed for the Trash.
std::vector<DuplicateFile> keepOrder(const DuplicateGroup& group, const KeepPreference& preference);

// The gain shown beside a group: "12.5 MB to gain", the shared-space sentence when nothing would
// be freed (with the snapshot hint when local snapshots are known to exist), absent when unknown.
// The sentences are said in `wording`.
std::optional<std::string> gainText(const DuplicateGroup& group,
                                    std::optional<bool> snapshotPresent, const Wording& wording);

// Whether `path` lies in `folder` or below it (compared lexically, component by component).
bool isUnder(const std::filesystem::path& path, const std::filesystem::path& folder);

}  // namespace kestrow
