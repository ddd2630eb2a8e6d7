#include "insights/duplicate_finder.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cctype>
#include <map>
#include <memory>
#include <numeric>
#include <span>
#include <system_error>
#include <thread>
#include <unordered_set>

#include "insights/private_size.h"
#include "insights/tree_walk.h"
#include "support/ascii_case.h"
#include "support/sha256.h"

namespace kestrow {
namespace {

using Digests = std::vector<std::optional<std::string>>;

unsigned threadCount(unsigned requested, std::size_t work) {
    unsigned threads =
        requested != 0 ? requested : std::max(1U, std::thread::hardware_concurrency());
    return static_cast<unsigned>(std::min<std::size_t>(threads, std::max<std::size_t>(work, 1)));
}

// Hashes every file on a few threads, biggest first so that no thread is left with one huge file
// at the end. Each thread reads through its own buffer; nothing else grows with file sizes.
Digests hashAll(const std::vector<DuplicateFile>& files, std::optional<std::int64_t> limit,
                unsigned requestedThreads) {
    Digests digests(files.size());
    std::vector<std::size_t> order(files.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b) { return files[a].size > files[b].size; });
    const std::size_t bufferSize =
        limit ? std::min(DuplicateFinder::kChunkBytes, static_cast<std::size_t>(*limit))
              : DuplicateFinder::kChunkBytes;
    std::atomic<std::size_t> next{0};
    const auto work = [&] {
        const auto buffer = std::make_unique_for_overwrite<std::byte[]>(bufferSize);
        const std::span<std::byte> chunk(buffer.get(), bufferSize);
        for (std::size_t i = next++; i < order.size(); i = next++)
            digests[order[i]] = Sha256::ofFile(files[order[i]].path, limit, chunk);
    };
    const unsigned threads = threadCount(requestedThreads, files.size());
    {
        std::vector<std::jthread> helpers;
        for (unsigned t = 1; t < threads; ++t) {
            // Without another thread the calling one still hashes everything, only slower.
            try {
                helpers.emplace_back(work);
            } catch (const std::system_error&) {
                break;
            }
        }
        work();
    }
    return digests;
}

// Splits every set by the files' digests; unreadable files and sets of one fall out.
std::vector<std::vector<DuplicateFile>> splitByDigest(
    const std::vector<std::vector<DuplicateFile>>& sets, std::optional<std::int64_t> limit,
    unsigned threads) {
    std::vector<DuplicateFile> flat;
    for (const auto& set : sets) flat.insert(flat.end(), set.begin(), set.end());
    const Digests digests = hashAll(flat, limit, threads);
    std::vector<std::vector<DuplicateFile>> result;
    std::size_t index = 0;
    for (const auto& set : sets) {
        std::map<std::string, std::vector<DuplicateFile>> byDigest;
        for (const auto& file : set) {
            if (const auto& digest = digests[index++]) byDigest[*digest].push_back(file);
        }
        for (auto& [digest, alike] : byDigest)
            if (alike.size() >= 2) result.push_back(std::move(alike));
    }
    return result;
}

// Roots in order, with those that do not exist and those inside an earlier or later root left
// out (their files are found through the outer root).
std::vector<std::filesystem::path> distinctRoots(const std::vector<std::filesystem::path>& roots) {
    std::vector<std::filesystem::path> existing;
    for (const auto& root : roots) {
        std::error_code error;
        if (!root.empty() && std::filesystem::is_directory(root, error))
            existing.push_back(root.lexically_normal());
    }
    std::vector<std::filesystem::path> result;
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
    return std::to_string(file.device) + ":" + std::to_string(file.inode);
}

std::optional<std::string> DuplicateFinder::hash(const std::filesystem::path& file,
                                                 std::optional<std::int64_t> limit) {
    const std::size_t size =
        limit ? std::min(kChunkBytes, static_cast<std::size_t>(std::max<std::int64_t>(*limit, 1)))
              : kChunkBytes;
    const auto buffer = std::make_unique_for_overwrite<std::byte[]>(size);
    return Sha256::ofFile(file, limit, std::span(buffer.get(), size));
}

DuplicateFinder::Scan DuplicateFinder::scanFilesCounting(
    const std::vector<std::filesystem::path>& roots) const {
    TreeWalk::Options walk;
    walk.threads = options_.threads;
    walk.skipFolder = [this](const std::filesystem::path& folder) {
        const std::string name = folder.filename().string();
        // The Trash of each volume: what is in it is on its way out already.
        if (name.starts_with(".Trash") || isPackage(name)) return true;
        return std::find(options_.skipFolders.begin(), options_.skipFolders.end(), folder) !=
               options_.skipFolders.end();
    };
    const TreeWalk::Files found = TreeWalk::files(distinctRoots(roots), kMinimumSize, walk);
    Scan scan;
    scan.skipped = found.skipped;
    scan.files.reserve(found.files.size());
    for (const auto& file : found.files) {
        scan.files.push_back({file.path, file.size, file.device, file.inode, file.modified,
                              measurePrivateSize(file.path)});
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

    sets = splitByDigest(sets, kPartialBytes, options_.threads);
    sets = splitByDigest(sets, std::nullopt, options_.threads);

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

DuplicateFinder::Result DuplicateFinder::scan(
    const std::vector<std::filesystem::path>& roots) const {
    Scan found = scanFilesCounting(roots);
    return {findGroups(std::move(found.files)), found.skipped};
}

}  // namespace kestrow
