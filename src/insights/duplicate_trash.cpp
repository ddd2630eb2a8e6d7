#include "insights/duplicate_trash.h"

#include <sys/stat.h>

#include <chrono>

namespace kestrow {
namespace {

std::string count(std::size_t n, const char* one, const char* many) {
    return std::to_string(n) + " " + (n == 1 ? one : many);
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
            bool anotherLeft = false;
            for (const auto& other : group.files) {
                if (other.path == file->path || gone.contains(other.path)) continue;
                if (unchangedSinceScan(other)) {
                    anotherLeft = true;
                    break;
                }
            }
            if (!anotherLeft) {
                ++report.skipped;
                continue;
            }
            if (const auto failure = trash.moveByPath(file->path)) {
                report.failures.push_back(file->path + ": " + *failure);
                continue;
            }
            gone.insert(file->path);
            report.moved.push_back(file->path);
            report.movedBytes += file->privateSize.value_or(file->size);
        }
    }
    return report;
}

}  // namespace kestrow
