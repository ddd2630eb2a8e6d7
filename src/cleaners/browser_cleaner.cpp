#include "cleaners/browser_cleaner.h"

#include "cleaners/browser_cache_targets.h"
#include "cleaners/cleaner_path.h"

namespace kestrow {

BrowserCleaner::BrowserCleaner(ChromiumBrowser browser, std::filesystem::path configHome,
                               std::optional<std::filesystem::path> cacheHome)
    : browser_(std::move(browser)),
      configHome_(std::move(configHome)),
      cacheHome_(std::move(cacheHome)) {}

CleanerDiscovery BrowserCleaner::discover() const {
    CleanerDiscovery found = BrowserCacheTargets::discover(configHome_, browser_);
    if (found.error || !cacheHome_ || CleanerPath::status(*cacheHome_) != PathStatus::usable) {
        return found;
    }
    // The caches folder is taken whole: everything the browser keeps there it rebuilds.
    const CleanerDiscovery caches =
        CleanerPath::discoverLeaf(*cacheHome_, BrowserCacheTargets::cachesComponents(browser_));
    // A caches folder that shows but cannot be read is a matter of access, as a profile root is.
    if (caches.error) return caches;
    for (const std::filesystem::path& target : caches.targets) {
        if (BrowserCacheTargets::isReclaimableCachesFolder(target, browser_, *cacheHome_)) {
            found.targets.push_back(target);
        }
    }
    if (!caches.targets.empty()) found.anchors.push_back(*cacheHome_);
    return found;
}

bool BrowserCleaner::isReclaimable(const std::filesystem::path& target) const {
    return BrowserCacheTargets::isReclaimable(target, browser_, configHome_) ||
           (cacheHome_ &&
            BrowserCacheTargets::isReclaimableCachesFolder(target, browser_, *cacheHome_));
}

}  // namespace kestrow
