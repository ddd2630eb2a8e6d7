#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "insights/duplicate_group.h"
#include "support/logger.h"

namespace kestrow {

// Finds files with the same content under the chosen folders. Sizes sort most files out for
// free; of the rest only the first 64 KiB are read, and only files still alike after that are
// read whole. Hashing runs on every core, each thread with one reusable 1 MiB buffer.
class DuplicateFinder {
public:
    static constexpr std::int64_t kMinimumSize = 1'048'576;
    static constexpr std::int64_t kPartialBytes = 65'536;
    static constexpr std::size_t kChunkBytes = 1'048'576;

    struct Options {
        // Hashing threads; 0 means one per core.
        unsigned threads = 0;
        // Folders never entered besides packages and every volume's .Trash folders: the home's
        // Trash. Recognised by what they are, however a root reaches them (a symbolic link, a
        // bind mount); a root inside one is not walked.
        std::vector<std::filesystem::path> skipFolders;
        // Looked at often (each folder, each file, each chunk hashed): once requested the scan
        // ends within moments, with an empty answer.
        std::stop_token stop;
    };
    struct Scan {
        std::vector<DuplicateFile> files;  // in path order
        int skipped = 0;                   // unreadable folders
    };
    struct Result {
        std::vector<DuplicateGroup> groups;
        int skipped = 0;
    };

    explicit DuplicateFinder(Logger log) : log_(log) {}
    DuplicateFinder(Logger log, Options options) : log_(log), options_(std::move(options)) {}

    // Regular files of at least kMinimumSize under the roots, with their private sizes, volumes
    // and anchors. Roots are taken as the kernel resolves them (so are the paths of the files
    // found); those that do not exist are passed over, a root inside another root is walked once.
    Scan scanFilesCounting(const std::vector<std::filesystem::path>& roots) const;
    // Groups of two or more files with the same content: biggest files first, then by first
    // path; each group's files in path order. One file is one file however it was reached: the
    // first name in `files` of each identity() stands for all its hard links and mounts.
    std::vector<DuplicateGroup> findGroups(std::vector<DuplicateFile> files) const;
    // Both of the above.
    Result scan(const std::vector<std::filesystem::path>& roots) const;

    // Lower-case hex SHA-256 of the file's first `limit` bytes, or of all of it; absent when it
    // cannot be read.
    static std::optional<std::string> hash(const std::filesystem::path& file,
                                           std::optional<std::int64_t> limit = std::nullopt);
    // "volume:inode", the same for every hard link of one file and every mount of its volume
    // ("device:inode" when the volume is not known).
    static std::string identity(const DuplicateFile& file);
    // Folders that the desktop shows as one item (applications, bundles, photo and media
    // libraries, project packages): their insides are not the user's loose files.
    static bool isPackage(std::string_view folderName);

private:
    Logger log_;
    Options options_;
};

}  // namespace kestrow
