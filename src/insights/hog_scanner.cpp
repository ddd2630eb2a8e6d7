#include "insights/hog_scanner.h"

#include <sys/statvfs.h>

#include <cmath>
#include <limits>
#include <set>
#include <stdexcept>

#include "insights/hog_store.h"
#include "insights/tree_walk.h"

namespace kestrow {

namespace fs = std::filesystem;

namespace {

// One spelling per folder, so that "/home/u/" and "/home/u/./" compare equal to "/home/u".
std::string normalized(const fs::path& path) {
    std::string text = path.lexically_normal().string();
    while (text.size() > 1 && text.ends_with('/')) text.pop_back();
    return text;
}

}  // namespace

HogScanner::HogScanner(UserLocations locations, Clock& clock, Logger log, std::stop_token stop)
    : locations_(std::move(locations)),
      clock_(clock),
      log_(log.sink(), LogArea::hogWatch),
      stop_(std::move(stop)) {}

std::vector<fs::path> HogScanner::roots(const UserLocations& locations) {
    std::vector<fs::path> found{locations.home};
#ifdef __APPLE__
    found.emplace_back("/Applications");
    found.emplace_back("/Users/Shared");
#endif
    return found;
}

std::vector<fs::path> HogScanner::excludes(const UserLocations& locations) {
    return {locations.home / ".Trash", locations.dataHome / "Trash", HogStore::folderIn(locations)};
}

HogScanner::Counted HogScanner::scanCounting(const std::vector<fs::path>& roots,
                                             std::int64_t minimumBytes,
                                             const std::vector<fs::path>& excludes,
                                             std::stop_token stop) {
    std::set<std::string, std::less<>> skipped;
    for (const auto& folder : excludes) skipped.insert(normalized(folder));
    TreeWalk::Options options;
    options.skipFolder = [skipped = std::move(skipped)](const fs::path& folder) {
        return skipped.contains(normalized(folder));
    };
    options.stop = std::move(stop);
    TreeWalk::FolderSizes walked = TreeWalk::folderSizes(roots, minimumBytes, options);
    return {std::move(walked.sizes), walked.skipped};
}

std::optional<std::int64_t> HogScanner::freeBytes(const fs::path& path) {
    struct statvfs volume {};
    if (::statvfs(path.c_str(), &volume) != 0) return std::nullopt;
    const long double bytes =
        static_cast<long double>(volume.f_bavail) * static_cast<long double>(volume.f_frsize);
    if (bytes > static_cast<long double>(std::numeric_limits<std::int64_t>::max()))
        return std::nullopt;
    return static_cast<std::int64_t>(bytes);
}

SizeSnapshot HogScanner::snapshot(WallTime now) const {
    const double started = clock_.monotonic();
    Counted counted = scanCounting(roots(locations_), kMinimumBytes, excludes(locations_), stop_);
    if (stop_.stop_requested()) throw std::runtime_error("stopped before the walk ended");
    const double took = clock_.monotonic() - started;
    log_.info("snapshot of {} folders in {}s", counted.sizes.size(), std::lround(took));
    if (counted.skipped > 0) log_.info("{} unreadable folder(s) skipped", counted.skipped);
    return SizeSnapshot{now, freeBytes(locations_.home), std::move(counted.sizes)};
}

}  // namespace kestrow
