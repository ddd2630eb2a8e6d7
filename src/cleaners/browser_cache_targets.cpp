#include "cleaners/browser_cache_targets.h"

#include <algorithm>
#include <cstddef>

#include "cleaners/cleaner_path.h"

namespace kestrow {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kServiceWorker = "Service Worker";
constexpr std::string_view kCacheStorage = "CacheStorage";

// The table spells nested folders with "/"; empty parts (a doubled or trailing slash) are
// dropped rather than becoming a component that no real path has.
std::vector<std::string> splitSubpath(std::string_view subpath) {
    std::vector<std::string> parts;
    while (!subpath.empty()) {
        const std::size_t slash = subpath.find('/');
        const std::string_view part = subpath.substr(0, slash);
        if (!part.empty()) parts.emplace_back(part);
        if (slash == std::string_view::npos) break;
        subpath.remove_prefix(slash + 1);
    }
    return parts;
}

}  // namespace

bool BrowserCacheTargets::isProfileName(std::string_view name) {
    if (name == "Default") return true;
    constexpr std::string_view prefix = "Profile ";
    if (!name.starts_with(prefix) || name.size() == prefix.size()) return false;
    return std::all_of(name.begin() + static_cast<std::ptrdiff_t>(prefix.size()), name.end(),
                       [](char c) { return c >= '0' && c <= '9'; });
}

fs::path BrowserCacheTargets::profileRoot(const fs::path& configHome,
                                          const ChromiumBrowser& browser) {
    fs::path root = configHome;
    for (const std::string& part : splitSubpath(browser.subpath)) root /= part;
    return root;
}

std::vector<std::string> BrowserCacheTargets::cachesComponents(const ChromiumBrowser& browser) {
    return splitSubpath(browser.cachesSubpath);
}

CleanerDiscovery BrowserCacheTargets::discover(const fs::path& configHome,
                                               const ChromiumBrowser& browser) {
    const fs::path root = profileRoot(configHome, browser);
    std::error_code error;
    fs::directory_iterator entry(root, error);
    if (error) {
        if (CleanerPath::status(error) == PathStatus::absent) return {};
        return CleanerPath::failedDiscovery(root, error);
    }
    CleanerDiscovery found;
    while (entry != fs::directory_iterator()) {
        const std::string name = entry->path().filename().string();
        if (isProfileName(name)) {
            fs::path target = root / name / kServiceWorker / kCacheStorage;
            if (isReclaimable(target, browser, configHome) &&
                CleanerPath::isRealDirectory(target)) {
                found.targets.push_back(std::move(target));
            }
        }
        entry.increment(error);
        if (error) return CleanerPath::failedDiscovery(root, error);
    }
    std::sort(found.targets.begin(), found.targets.end());
    if (!found.targets.empty()) found.anchors.push_back(configHome);
    return found;
}

bool BrowserCacheTargets::isReclaimable(const fs::path& target, const ChromiumBrowser& browser,
                                        const fs::path& configHome) {
    const fs::path root = profileRoot(configHome, browser);
    const std::string profile = target.parent_path().parent_path().filename().string();
    if (!isProfileName(profile) ||
        !CleanerPath::isExactLeaf(
            target, root, {profile, std::string(kServiceWorker), std::string(kCacheStorage)})) {
        return false;
    }
    // Each folder on the way must be the profile's own: had "Service Worker" (or the profile)
    // been swapped for a link, the "CacheStorage" inside it would be whatever the link reaches.
    const fs::path profileFolder = root / profile;
    const fs::path serviceWorker = profileFolder / kServiceWorker;
    if (!CleanerPath::isRealDirectory(profileFolder) ||
        !CleanerPath::isRealDirectory(serviceWorker) || !CleanerPath::isRealDirectory(target)) {
        return false;
    }
    // And resolved again, so that the folder the move will reach is that one and no other.
    std::error_code error;
    const fs::path resolvedRoot = fs::canonical(root, error);
    if (error) return false;
    const fs::path resolvedFolder = fs::canonical(target.parent_path(), error);
    if (error) return false;
    return resolvedFolder == resolvedRoot / profile / kServiceWorker;
}

bool BrowserCacheTargets::isReclaimableCachesFolder(const fs::path& target,
                                                    const ChromiumBrowser& browser,
                                                    const fs::path& cacheHome) {
    return CleanerPath::isExactLeaf(target, cacheHome, cachesComponents(browser));
}

std::optional<std::string> BrowserCacheTargets::accessCaption(
    const std::vector<std::string>& blockedNames, const Wording& wording) {
    std::string names;
    for (const ChromiumBrowser& browser : ChromiumBrowser::all()) {
        if (std::find(blockedNames.begin(), blockedNames.end(), browser.name) ==
            blockedNames.end()) {
            continue;
        }
        if (!names.empty()) names += ", ";
        names += browser.name;
    }
    if (names.empty()) return std::nullopt;
    return wording("Needs Full Disk Access to clear") + " " + names;
}

}  // namespace kestrow
