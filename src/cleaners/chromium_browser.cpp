#include "cleaners/chromium_browser.h"

namespace kestrow {

namespace {

// Linux has no bundle identifiers: a browser is known by its executable's name and where its
// package installs it. The ids are the browsers' desktop-entry names.
ChromiumBrowser browser(std::string name, std::string id, std::string subpath,
                        std::vector<std::string> processNames, std::string installFolder) {
    CleanerOwner owner;
    owner.processNames = std::move(processNames);
    owner.pathFragments = {std::move(installFolder)};
    std::string cachesSubpath = subpath;
    return ChromiumBrowser{std::move(name), std::move(id), std::move(subpath),
                           std::move(cachesSubpath), std::move(owner)};
}

}  // namespace

const std::vector<ChromiumBrowser>& ChromiumBrowser::all() {
    static const std::vector<ChromiumBrowser> browsers{
        browser("Edge", "microsoft-edge", "microsoft-edge", {"msedge", "microsoft-edge"},
                "/opt/microsoft/msedge/"),
        browser("Chrome", "google-chrome", "google-chrome", {"chrome", "google-chrome"},
                "/opt/google/chrome/"),
        browser("Brave", "brave-browser", "BraveSoftware/Brave-Browser", {"brave", "brave-browser"},
                "/opt/brave.com/brave/"),
        browser("Chromium", "chromium", "chromium", {"chromium", "chromium-browser"},
                "/usr/lib/chromium/"),
    };
    return browsers;
}

}  // namespace kestrow
