#include "cleaners/package_cache_cleaner.h"

#include "cleaners/cleaner_path.h"

namespace kestrow {

CleanerDiscovery PackageCacheCleaner::discover() const {
    return CleanerPath::discoverLeaf(base_, relative_);
}

bool PackageCacheCleaner::isReclaimable(const std::filesystem::path& target) const {
    return CleanerPath::isExactLeaf(target, base_, relative_) &&
           CleanerPath::isRealDirectory(target);
}

std::filesystem::path PackageCacheCleaner::folder() const {
    auto path = base_;
    for (const auto& component : relative_) path /= component;
    return path;
}

}  // namespace kestrow
