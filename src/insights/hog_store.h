#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "insights/size_snapshot.h"
#include "platform/locations.h"

namespace kestrow {

// The hog watch's memory: one JSON file per scan, named after the scan's time in UTC, so that
// name order is time order. Only the newest few are kept; files that are not ours by name are
// never read, changed or deleted.
class HogStore {
public:
    static constexpr std::size_t kKeep = 8;

    explicit HogStore(std::filesystem::path folder) : folder_(std::move(folder)) {}
    // $XDG_DATA_HOME/Orvel/sizes
    static std::filesystem::path folderIn(const UserLocations& locations);

    const std::filesystem::path& folder() const { return folder_; }

    // Every readable snapshot, oldest first; corrupt files are passed over.
    std::vector<SizeSnapshot> load() const;
    // Writes the snapshot atomically, then deletes the oldest of ours beyond the newest kKeep,
    // but never the newest two nightly ones.
    // False with a readable reason when the snapshot could not be written; a failed deletion
    // only leaves an extra file for the next save to try again.
    bool save(const SizeSnapshot& snapshot, std::string* error = nullptr) const;

    // "2026-11-14T031500Z.json"
    static std::string snapshotName(WallTime date);
    static bool isSnapshotName(std::string_view name);
    // The snapshot names among `names` that go so that the newest `keep` remain, oldest first.
    static std::vector<std::string> snapshotsToPrune(std::vector<std::string> names,
                                                     std::size_t keep);

private:
    std::vector<std::string> snapshotNames() const;

    std::filesystem::path folder_;
};

}  // namespace kestrow
