#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cleaners/chromium_browser.h"
#include "cleaners/cleaner.h"
#include "support/wording.h"

namespace kestrow {

// Where a browser keeps the caches Kestrow may take, and the checks that keep a pass inside
// them: each profile's "Service Worker/CacheStorage" under the configuration folder, and the
// browser's own folder under the caches folder.
struct BrowserCacheTargets {
    // "Default", or "Profile " and a number: the folders the browser creates for its profiles.
    // The guest and system profiles keep nothing worth taking.
    static bool isProfileName(std::string_view name);
    static std::filesystem::path profileRoot(const std::filesystem::path& configHome,
                                             const ChromiumBrowser& browser);
    static std::vector<std::string> cachesComponents(const ChromiumBrowser& browser);

    // Every profile's CacheStorage that passes isReclaimable. A missing profile root is a browser
    // that was never used; one that cannot be read blocks the browser.
    static CleanerDiscovery discover(const std::filesystem::path& configHome,
                                     const ChromiumBrowser& browser);
    // A profile's CacheStorage, reached through real folders only: a link anywhere between the
    // profile root and the target could point the move at something else.
    static bool isReclaimable(const std::filesystem::path& target, const ChromiumBrowser& browser,
                              const std::filesystem::path& configHome);
    static bool isReclaimableCachesFolder(const std::filesystem::path& target,
                                          const ChromiumBrowser& browser,
                                          const std::filesystem::path& cacheHome);

    // The menu's line under the browser row while some browsers could not be read; nothing when
    // none of the browsers in `blockedNames` is known.
    static std::optional<std::string> accessCaption(const std::vector<std::string>& blockedNames,
                                                    const Wording& wording);
};

}  // namespace kestrow
