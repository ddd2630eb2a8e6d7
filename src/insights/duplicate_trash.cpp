#include "insights/duplicate_trash.h"

#include <sys/stat.h>

#include <algorithm>
#include <chrono>

namespace kestrow {
namespace {

std::string count(std::size_t n, const char* one, const char* many) {
    return std::to_string(n) + " " + (n == 1 ? one : many);
}

// What emptying the Trash would give back for this copy, as it stands right before the move.
std::int64_t freedByMoving(const DuplicateFile& file) {
    struct stat info {};
    if (::lstat(file.path.c_str(), &info) == 0 && info.st_nlink > 1) return 0;
    return file.privateSize.value_or(0);
}

// The anchor a copy is checked from: its scan root, or its own folder for a copy that came with
// none.
std::filesystem::path anchorOf(const DuplicateFile& file) {
    if (!file.anchor.empty() && file.anchor != file.path) return file.anchor;
    return std::filesystem::path(file.path).parent_path();
}

}  // namespace

bool unchangedSinceScan(const DuplicateFile& file) {
    struct stat info {};
    if (::lstat(file.path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return false;
    const auto modified = WallTime(std::chrono::duration_cast<WallTime::duration>(
        std::chrono::seconds(info.st_mtim.tv_sec) +
        std::chrono::nanoseconds(info.st_mtim.tv_nsec)));
    return static_cast<std::uint64_t>(info.st_dev) == file.device &&
           static_cast<std::uint64_t>(info.st_ino) == file.inode && info.st_size == file.size &&
           modified == file.modified;
}

TrashItemIdentity scannedIdentity(const DuplicateFile& file) {
    return {TrashItemIdentity::Kind::regularFile, file.device, file.inode, file.size,
            file.modified};
}

std::string DuplicateTrashReport::statusLine() const {
    std::string line = moved.empty()
                           ? std::string("Nothing moved to the Trash")
                           : "Moved " + count(moved.size(), "file", "files") + " to the Trash";
    if (!failures.empty()) line += "; " + std::to_string(failures.size()) + " couldn't be moved";
    if (skipped > 0) line += "; " + std::to_string(skipped) + duplicate_text::kSkippedSuffix;
    return line;
}

DuplicateTrashReport trashDuplicates(const std::set<std::string>& selected,
                                     const std::vector<DuplicateGroup>& groups,
                                     const KeepPreference& preference, Trash& trash) {
    DuplicateTrashReport report;
    for (const auto& group : groups) {
        std::vector<const DuplicateFile*> chosen;
        for (const auto& file : group.files)
            if (selected.contains(file.path)) chosen.push_back(&file);
        if (chosen.empty()) continue;
        if (chosen.size() == group.files.size()) {
            const std::string stays = keepOrder(group, preference).front().path;
            std::erase_if(chosen, [&](const DuplicateFile* f) { return f->path == stays; });
        }
        std::set<std::string> gone;
        for (const auto* file : chosen) {
            if (!unchangedSinceScan(*file)) {
                ++report.skipped;
                continue;
            }
            // Another copy must still be there, as scanned, after this one goes.
            std::vector<const DuplicateFile*> intact;
            for (const auto& other : group.files) {
                if (other.path == file->path || gone.contains(other.path)) continue;
                if (unchangedSinceScan(other)) intact.push_back(&other);
            }
            if (intact.empty()) {
                ++report.skipped;
                continue;
            }
            const std::int64_t freed = freedByMoving(*file);
            const TrashMove move = trash.moveToTrash(
                TrashRequest{anchorOf(*file), file->path, scannedIdentity(*file)});
            if (!move.ok()) {
                report.failures.push_back(file->path + ": " + move.failure);
                continue;
            }
            // A copy that vanished with this move was this very file seen through another name
            // the scan could not tell apart (a FUSE view, a share mounted twice): it goes back.
            const bool aliased = std::any_of(intact.begin(), intact.end(), [](const auto* other) {
                return !unchangedSinceScan(*other);
            });
            if (aliased) {
                if (const auto failure = trash.putBack(*move.trashed)) {
                    report.failures.push_back(file->path +
                                              ": it was the last copy and is in the Trash; "
                                              "restore it from there (" +
                                              *failure + ")");
                } else {
                    ++report.skipped;
                }
                continue;
            }
            gone.insert(file->path);
            report.moved.push_back(file->path);
            report.movedBytes += freed;
        }
    }
    return report;
}

}  // namespace kestrow
