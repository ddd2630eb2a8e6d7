#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "support/clock.h"

namespace kestrow {

// How a TreeWalk goes (TreeWalk::Options). Declared outside the class so that it is complete
// where TreeWalk's functions use it as a default argument.
struct TreeWalkOptions {
    // Folders not entered at all (their own blocks are not counted either), by full path or
    // by their name: the Trash, packages. Asked about folders below the roots, from several
    // threads at once; the roots themselves are always walked.
    std::function<bool(const std::filesystem::path& folder)> skipFolder;
    // Folders not entered, by what they are (device, inode) rather than by how the walk spells
    // them: the Trash reached through a symbolic link or a bind mount is still the Trash.
    std::set<std::pair<std::uint64_t, std::uint64_t>> skipObjects;
    // Looked at before each folder and each batch of its entries: once a stop is requested the
    // walk winds down within moments and its answer is partial.
    std::stop_token stop;
    // Worker threads; 0 lets the walk choose: a few per core, because on a cold cache most of
    // them wait for the disk.
    unsigned threads = 0;
};

// The one walk over folder trees that the hog scan, the duplicate scan and the cleaners' size
// count share. Symbolic links are never followed (a root that is one is: the caller named it).
// Other file systems are never entered: a mount point below a root is left out altogether, its
// own entry included, as `du -x` does. A folder that cannot be read is counted as skipped and
// adds nothing but its own blocks. A root that does not exist adds nothing and is not skipped;
// no roots at all is an empty answer at once.
// Memory grows with the depth of the tree, not its size; both cores are used where it pays.
class TreeWalk {
public:
    using Options = TreeWalkOptions;

    // du semantics: a folder's total is its own blocks plus everything below it, allocated sizes,
    // each inode counted once. A file with several hard links counts in the folder where a
    // depth-first walk in directory order (du's) meets it first, however the threads met it. A
    // folder that cannot be read is listed with its own blocks, as du lists it.
    struct FolderSizes {
        std::map<std::string, std::int64_t> sizes;  // folders whose total is at least the minimum
        int skipped = 0;
        std::int64_t totalBytes = 0;  // of all roots together
    };

    struct File {
        std::string path;
        std::int64_t size = 0;       // logical
        std::int64_t allocated = 0;  // blocks × 512
        std::uint64_t device = 0;
        std::uint64_t inode = 0;
        WallTime modified;
        std::uint64_t links = 1;  // hard links, in the roots or anywhere else
        std::uint32_t root = 0;   // which of the roots holds it, by position
        bool operator==(const File&) const = default;
    };
    struct Files {
        // Regular files of at least the minimum size, every name of a hard-linked file, by path.
        std::vector<File> files;
        int skipped = 0;
    };

    static FolderSizes folderSizes(const std::vector<std::filesystem::path>& roots,
                                   std::int64_t minimumBytes, const Options& options = {});
    static Files files(const std::vector<std::filesystem::path>& roots, std::int64_t minimumSize,
                       const Options& options = {});
};

}  // namespace kestrow
