#pragma once

#include <filesystem>
#include <optional>

#include "cleaners/chromium_browser.h"
#include "cleaners/cleaner.h"

namespace kestrow {

// One browser's disk caches: each profile's "Service Worker/CacheStorage" and the browser's own
// folder among the per-user caches.
class BrowserCleaner final : public Cleaner {
public:
    BrowserCleaner(ChromiumBrowser browser, std::filesystem::path configHome,
                   std::optional<std::filesystem::path> cacheHome);

    std::string id() const override { return browser_.id; }
    std::string name() const override { return browser_.name; }
    CleanerOwner owner() const override { return browser_.owner; }
    CleanerDiscovery discover() const override;
    bool isReclaimable(const std::filesystem::path& target) const override;

    const ChromiumBrowser& browser() const { return browser_; }

private:
    ChromiumBrowser browser_;
    std::filesystem::path configHome_;
    std::optional<std::filesystem::path> cacheHome_;
};

}  // namespace kestrow
