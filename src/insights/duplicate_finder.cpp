#include "insights/duplicate_finder.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <map>
#include <memory>
#include <set>
#include <span>
#include <unordered_set>

#include "insights/duplicate_hashing.h"
#include "insights/duplicate_identity.h"
#include "insights/private_size.h"
#include "insights/tree_walk.h"
#include "support/ascii_case.h"

namespace kestrow {
namespace {

namespace fs = std::filesystem;
using Objects = std::set<std::pair<std::uint64_t, std::uint64_t>>;

// What the folders are (device, inode), through whatever links lead to them.
Objects objectsOf(const std::vector<fs::path>& folders) {
    Objects objects;
    for (const auto& folder : folders) {
        struct stat info {};
        if (!folder.empty() && ::stat(folder.c_str(), &info) == 0)
            objects.emplace(static_cast<std::uint64_t>(info.st_dev),
                            static_cast<std::uint64_t>(info.st_ino));
    }
    return objects;
}

bool isTrashName(const std::string& name) {
    return name.starts_with(".Trash");
}

// Whether a resolved folder is a Trash or lies in one: a volume's .Trash-UID or .Trash/UID, or
// one of the Trash folders given.
bool insideTrash(const fs::path& folder, const Objects& trashes) {
    for (fs::path p = folder;; p = p.parent_path()) {
        if (isTrashName(p.filename().string())) return true;
        struct stat info {};
        if (::stat(p.c_str(), &info) == 0 &&
            trashes.contains({static_cast<std::uint64_t>(info.st_dev),
                              static_cast<std::uint64_t>(info.st_ino)})) {
            return true;
        }
        if (p == p.root_path() || p.empty()) return false;
    }
}

// Roots in order as the kernel resolves them, with those that do not exist, those in a Trash and
// those inside an earlier or later root left out (their files are found through the outer root).
std::vector<fs::path> distinctRoots(const std::vector<fs::path>& roots, const Objects& trashes) {
    std::vector<fs::path> existing;
    for (const auto& root : roots) {
        std::error_code error;
        if (root.empty()) continue;
        const fs::path resolved = fs::canonical(root, error);
        if (error || !fs::is_directory(resolved, error) || insideTrash(resolved, trashes)) continue;
        existing.push_back(resolved);
    }
    std::vector<fs::path> result;
    for (std::size_t i = 0; i < existing.size(); ++i) {
        bool covered = false;
        for (std::size_t j = 0; j < existing.size() && !covered; ++j) {
            if (i == j) continue;
            const bool same = existing[i] == existing[j];
            covered = same ? j < i : isUnder(existing[i], existing[j]);
        }
        if (!covered) result.push_back(existing[i]);
    }
    return result;
}

}  // namespace

bool DuplicateFinder::isPackage(std::string_view folderName) {
    static constexpr std::array<std::string_view, 24> kSuffixes{
        ".app",        ".appex",         ".bundle",       ".framework",
        ".plugin",     ".kext",          ".xpc",          ".pkg",
        ".mpkg",       ".xcodeproj",     ".xcworkspace",  ".xcarchive",
        ".playground", ".photoslibrary", ".photolibrary", ".migratedphotolibrary",
        ".aplibrary",  ".musiclibrary",  ".tvlibrary",    ".imovielibrary",
        ".fcpbundle",  ".logicx",        ".band",         ".appdir"};
    const std::string lower = asciiLowercase(folderName);
    return std::any_of(kSuffixes.begin(), kSuffixes.end(), [&](std::string_view suffix) {
        return lower.size() > suffix.size() && lower.ends_with(suffix);
    });
}

std::string DuplicateFinder::identity(const DuplicateFile& file) {
    return (file.volume.empty() ? std::to_string(file.device) : file.volume) + ":" +
           std::to_string(file.inode);
}

std::optional<std::string> DuplicateFinder::hash(const std::filesystem::path& file,
                                                 std::optional<std::int64_t> limit) {
    const std::size_t size =
        limit ? std::min(kChunkBytes, static_cast<std::size_t>(std::max<std::int64_t>(*limit, 1)))
              : kChunkBytes;
    const auto buffer = std::make_unique_for_overwrite<std::byte[]>(size);
    return hashDuplicateCandidate(file.string(), nullptr, limit, std::span(buffer.get(), size));
}

DuplicateFinder::Scan DuplicateFinder::scanFilesCounting(const std::vector<fs::path>& roots) const {
    const Objects trashes = objectsOf(options_.skipFolders);
    const std::vector<fs::path> walked = distinctRoots(roots, trashes);
    TreeWalk::Options walk;
    walk.threads = options_.threads;
    walk.stop = options_.stop;
    walk.skipObjects = trashes;
    walk.skipFolder = [this](const fs::path& folder) {
        const std::string name = folder.filename().string();
        // The Trash of each volume: what is in it is on its way out already.
        if (isTrashName(name) || isPackage(name)) return true;
        return std::find(options_.skipFolders.begin(), options_.skipFolders.end(), folder) !=
               options_.skipFolders.end();
    };
    const TreeWalk::Files found = TreeWalk::files(walked, kMinimumSize, walk);
    Scan scan;
    if (options_.stop.stop_requested()) return scan;
    const DuplicateIdentity mounts =
        found.files.empty() ? DuplicateIdentity{} : DuplicateIdentity::current();
    scan.skipped = found.skipped;
    scan.files.reserve(found.files.size());
    for (const auto& file : found.files) {
        if (options_.stop.stop_requested()) return {};
        // Another hard link keeps the blocks however many of this file's names go.
        const auto privateSize =
            file.links > 1 ? std::optional<std::int64_t>(0) : measurePrivateSize(file.path);
        scan.files.push_back({file.path, file.size, file.device, file.inode, file.modified,
                              privateSize, mounts.volumeOf(file.device),
                              walked[file.root].string()});
    }
    std::sort(scan.files.begin(), scan.files.end(),
              [](const auto& a, const auto& b) { return a.path < b.path; });
    if (scan.skipped > 0) log_.info("Duplicates: {} unreadable folder(s) skipped", scan.skipped);
    return scan;
}

std::vector<DuplicateGroup> DuplicateFinder::findGroups(std::vector<DuplicateFile> files) const {
    std::erase_if(files, [](const DuplicateFile& f) { return f.size < kMinimumSize; });

    std::unordered_set<std::string> seen;
    std::erase_if(files, [&](const DuplicateFile& f) { return !seen.insert(identity(f)).second; });

    std::map<std::int64_t, std::vector<DuplicateFile>> bySize;
    for (auto& file : files) bySize[file.size].push_back(std::move(file));
    std::vector<std::vector<DuplicateFile>> sets;
    for (auto& [size, alike] : bySize)
        if (alike.size() >= 2) sets.push_back(std::move(alike));

    sets = splitByDigest(sets, kPartialBytes, options_.threads, options_.stop);
    sets = splitByDigest(sets, std::nullopt, options_.threads, options_.stop);
    if (options_.stop.stop_requested()) return {};

    std::vector<DuplicateGroup> groups;
    for (auto& set : sets) {
        std::sort(set.begin(), set.end(),
                  [](const auto& a, const auto& b) { return a.path < b.path; });
        groups.push_back({std::move(set)});
    }
    std::sort(groups.begin(), groups.end(), [](const auto& a, const auto& b) {
        if (a.size() != b.size()) return a.size() > b.size();
        return a.files.front().path < b.files.front().path;
    });
    return groups;
}

DuplicateFinder::Result DuplicateFinder::scan(const std::vector<fs::path>& roots) const {
    Scan found = scanFilesCounting(roots);
    return {findGroups(std::move(found.files)), found.skipped};
}

}  // namespace kestrow
