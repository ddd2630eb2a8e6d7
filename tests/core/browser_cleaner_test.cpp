#include "cleaners/browser_cleaner.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "cleaners/browser_cache_targets.h"
#include "cleaners/cleaner_pass.h"
#include "support/temp_folder.h"

namespace kestrow {
namespace {

namespace fs = std::filesystem;

const ChromiumBrowser& browserNamed(const std::string& name) {
    const auto& all = ChromiumBrowser::all();
    return *std::find_if(all.begin(), all.end(),
                         [&](const ChromiumBrowser& browser) { return browser.name == name; });
}

class BrowserCleanerTest : public ::testing::Test {
protected:
    testing::TempFolder temp;
    fs::path config = temp / ".config";
    fs::path cache = temp / ".cache";
    const ChromiumBrowser& chrome = browserNamed("Chrome");
    fs::path chromeRoot = config / "google-chrome";

    // A profile's CacheStorage with one entry in it.
    fs::path addCacheStorage(const fs::path& profile) {
        const fs::path storage = profile / "Service Worker" / "CacheStorage";
        fs::create_directories(storage / "0a1b");
        std::ofstream(storage / "0a1b" / "index") << "cached";
        return storage;
    }

    std::vector<fs::path> sorted(std::vector<fs::path> paths) {
        std::sort(paths.begin(), paths.end());
        return paths;
    }

    // A pass with nothing running that really moves what it takes into <temp>/trash.
    std::vector<fs::path> runPass(const BrowserCleaner& cleaner) {
        std::vector<fs::path> moved;
        fs::create_directories(temp / "trash");
        CleanerPass::runAll(
            {&cleaner}, [](const CleanerOwner&) { return false; },
            [&](const TrashRequest& request) -> std::optional<std::string> {
                const fs::path& item = request.item;
                std::error_code error;
                fs::rename(item, temp / "trash" / std::to_string(moved.size()), error);
                if (error) return error.message();
                moved.push_back(item);
                return std::nullopt;
            });
        return moved;
    }
};

TEST_F(BrowserCleanerTest, TakesTheNumberedAndDefaultProfilesAndTheCachesFolder) {
    for (const char* profile : {"Default", "Profile 3", "Profile 12", "Profile 3a", "Guest Profile",
                                "System Profile", "Profile", "Profile x", "Profile  3",
                                "Profile 3 ", "Profile -1", "profile 3", "Default 2"}) {
        addCacheStorage(chromeRoot / profile);
    }
    fs::create_directories(chromeRoot / "Profile 7" / "Service Worker");  // nothing cached yet
    fs::create_directories(chromeRoot / "Profile 8");
    temp.write(".config/google-chrome/Profile 8/Service Worker/CacheStorage", "a file");
    fs::create_directories(cache / "google-chrome" / "Default" / "Cache");

    const BrowserCleaner cleaner(chrome, config, cache);
    const CleanerDiscovery found = cleaner.discover();
    EXPECT_FALSE(found.error);
    EXPECT_EQ(sorted(found.targets), sorted({chromeRoot / "Default/Service Worker/CacheStorage",
                                             chromeRoot / "Profile 3/Service Worker/CacheStorage",
                                             chromeRoot / "Profile 12/Service Worker/CacheStorage",
                                             cache / "google-chrome"}));
    for (const fs::path& target : found.targets) EXPECT_TRUE(cleaner.isReclaimable(target));
    EXPECT_FALSE(cleaner.isReclaimable(chromeRoot / "Guest Profile/Service Worker/CacheStorage"));
    EXPECT_FALSE(BrowserCacheTargets::isProfileName("Profile \xd9\xa3"));  // a non-ASCII digit

    // Another browser's folders, a profile root that is not there, and no known caches folder.
    const BrowserCleaner brave(browserNamed("Brave"), config, std::nullopt);
    EXPECT_EQ(brave.discover(), CleanerDiscovery{});
    EXPECT_FALSE(brave.isReclaimable(chromeRoot / "Default/Service Worker/CacheStorage"));
    const BrowserCleaner noCaches(chrome, config, std::nullopt);
    EXPECT_EQ(noCaches.discover().targets.size(), 3u);
    EXPECT_FALSE(noCaches.isReclaimable(cache / "google-chrome"));
}

TEST_F(BrowserCleanerTest, OnlyTheExactShapeBelowTheProfileRootIsReclaimable) {
    const fs::path storage = addCacheStorage(chromeRoot / "Default");
    addCacheStorage(chromeRoot / "Guest Profile");
    fs::create_directories(chromeRoot / "Default/Service Worker/Cache");
    const BrowserCleaner cleaner(chrome, config, cache);
    EXPECT_TRUE(cleaner.isReclaimable(storage));
    for (const fs::path& trick : {
             chromeRoot / "Default/Service Worker",
             chromeRoot / "Default/Service Worker/CacheStorage/0a1b",
             chromeRoot / "Default/Service Worker/Cache",
             chromeRoot / "Guest Profile/Service Worker/CacheStorage",
             chromeRoot / "Default/Service Worker/../Service Worker/CacheStorage",
             chromeRoot / "Default/./Service Worker/CacheStorage",
             fs::path(chromeRoot.string() + "/Default//Service Worker/CacheStorage"),
             fs::path(storage.string() + "/"),
             config / "chromium/Default/Service Worker/CacheStorage",
         }) {
        EXPECT_FALSE(cleaner.isReclaimable(trick)) << trick;
    }

    // The caches folder of the browser's own nested name, and nothing around it.
    const ChromiumBrowser& braveBrowser = browserNamed("Brave");
    const fs::path braveCaches = cache / "BraveSoftware/Brave-Browser";
    fs::create_directories(braveCaches / "Default/Cache");
    const BrowserCleaner brave(braveBrowser, config, cache);
    EXPECT_EQ(brave.discover().targets, std::vector<fs::path>{braveCaches});
    EXPECT_TRUE(brave.isReclaimable(braveCaches));
    EXPECT_FALSE(brave.isReclaimable(cache / "BraveSoftware"));
    EXPECT_FALSE(brave.isReclaimable(braveCaches / "Default"));
    EXPECT_FALSE(brave.isReclaimable(cache / "google-chrome"));

    // A caches folder that is a link leads out of the caches folder: not taken.
    fs::create_directories(temp / "elsewhere");
    fs::create_directory_symlink(temp / "elsewhere", cache / "google-chrome");
    EXPECT_EQ(cleaner.discover().targets, std::vector<fs::path>{storage});
}

TEST_F(BrowserCleanerTest, LinksOnTheWayToACacheStorageAreRefusedAndWhatTheyReachIsKept) {
    const fs::path storage = addCacheStorage(chromeRoot / "Default");
    // CacheStorage itself a link.
    const fs::path linkedStorage = addCacheStorage(temp / "elsewhere/one");
    fs::create_directories(chromeRoot / "Profile 1/Service Worker");
    fs::create_directory_symlink(linkedStorage,
                                 chromeRoot / "Profile 1/Service Worker/CacheStorage");
    // The Service Worker folder a link to a folder with a real CacheStorage in it.
    addCacheStorage(temp / "elsewhere/two");
    fs::create_directories(chromeRoot / "Profile 2");
    fs::create_directory_symlink(temp / "elsewhere/two/Service Worker",
                                 chromeRoot / "Profile 2/Service Worker");
    // The whole profile a link.
    addCacheStorage(temp / "elsewhere/three");
    fs::create_directory_symlink(temp / "elsewhere/three", chromeRoot / "Profile 3");

    const BrowserCleaner cleaner(chrome, config, std::nullopt);
    EXPECT_EQ(cleaner.discover().targets, std::vector<fs::path>{storage});
    for (const char* profile : {"Profile 1", "Profile 2", "Profile 3"}) {
        EXPECT_FALSE(
            cleaner.isReclaimable(chromeRoot / profile / "Service Worker" / "CacheStorage"))
            << profile;
    }
    EXPECT_EQ(runPass(cleaner), std::vector<fs::path>{storage});
    EXPECT_FALSE(fs::exists(storage));
    for (const char* kept : {"one", "two", "three"}) {
        EXPECT_TRUE(
            fs::exists(temp / "elsewhere" / kept / "Service Worker/CacheStorage/0a1b/index"))
            << kept;
    }

    // Found real, then its Service Worker folder swapped for a link to one that looks the same:
    // the check right before the move no longer takes it.
    const fs::path again = addCacheStorage(chromeRoot / "Default");
    ASSERT_EQ(cleaner.discover().targets, std::vector<fs::path>{again});
    fs::rename(chromeRoot / "Default/Service Worker", temp / "elsewhere/swapped");
    fs::create_directory_symlink(temp / "elsewhere/swapped", chromeRoot / "Default/Service Worker");
    EXPECT_FALSE(cleaner.isReclaimable(again));
    EXPECT_TRUE(runPass(cleaner).empty());
    EXPECT_TRUE(fs::exists(temp / "elsewhere/swapped/CacheStorage/0a1b/index"));
}

TEST(BrowserAccessCaption, NamesTheBlockedBrowsersInTableOrder) {
    const Wording exact = Wording::exact();
    EXPECT_EQ(BrowserCacheTargets::accessCaption({}, exact), std::nullopt);
    EXPECT_EQ(BrowserCacheTargets::accessCaption({"Arc"}, exact), std::nullopt);
    EXPECT_EQ(BrowserCacheTargets::accessCaption({"Chrome", "Edge"}, exact),
              "Needs Full Disk Access to clear Edge, Chrome");
    EXPECT_EQ(BrowserCacheTargets::accessCaption({"Chromium", "Arc", "Brave"}, exact),
              "Needs Full Disk Access to clear Brave, Chromium");
    EXPECT_EQ(BrowserCacheTargets::accessCaption({"Chrome"}, Wording::linux(std::nullopt)),
              "Needs permission to clear Chrome");
}

}  // namespace
}  // namespace kestrow
