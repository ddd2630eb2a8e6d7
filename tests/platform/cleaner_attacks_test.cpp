// The cleaners against the real Trash, under the attacks a pass must survive: a folder on the way
// swapped for a link, the target swapped while it moves, a mount inside a cache.
#include <sys/mount.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "cleaners/browser_cleaner.h"
#include "cleaners/chromium_browser.h"
#include "cleaners/cleaner_pass.h"
#include "cleaners/cleaner_path.h"
#include "cleaners/developer_cleaners.h"
#include "cleaners/xcode_cleaner.h"
#include "platform/linux/freedesktop_trash.h"
#include "support/atomic_file.h"
#include "support/temp_folder.h"

namespace kestrow {
namespace {

namespace fs = std::filesystem;

void write(const fs::path& path, std::size_t bytes) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << std::string(bytes, 'x');
}

std::size_t entriesIn(const fs::path& folder) {
    std::error_code ec;
    std::size_t count = 0;
    for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) ++count;
    return count;
}

const ChromiumBrowser& browserNamed(const std::string& name) {
    for (const ChromiumBrowser& browser : ChromiumBrowser::all()) {
        if (browser.name == name) return browser;
    }
    throw std::runtime_error("no browser " + name);
}

class CleanerAttacksTest : public ::testing::Test {
protected:
    CleanerAttacksTest() {
        folders.home = temp / "home";
        folders.configHome = folders.home / ".config";
        folders.cacheHome = folders.home / ".cache";
        folders.dataHome = folders.home / ".local/share";
        fs::create_directories(folders.cacheHome);
        fs::create_directories(folders.configHome);
    }

    CleanerOutcome pass(const Cleaner& cleaner) {
        return CleanerPass::run(
            cleaner, [](const CleanerOwner&) { return false; },
            [this](const TrashRequest& request) -> std::optional<std::string> {
                const TrashMove move = trash.moveToTrash(request);
                if (move.ok()) return std::nullopt;
                return move.failure;
            });
    }
    fs::path trashFiles() const { return folders.dataHome / "Trash/files"; }

    testing::TempFolder temp;
    UserLocations folders;
    FreedesktopTrash trash{temp / "home/.local/share"};
};

TEST_F(CleanerAttacksTest, AFolderSwappedForALinkDuringAPassMovesOnlyWhatWasChecked) {
    const fs::path cache = folders.home / ".npm/_cacache";
    write(cache / "index", 10'000);
    write(temp / "decoy/_cacache/precious", 10);
    const auto npm = DeveloperCleaners::make("npm", folders);
    trash.setBeforeRenameForTesting([&] {
        fs::rename(folders.home / ".npm", folders.home / ".npm-aside");
        fs::create_directory_symlink(temp / "decoy", folders.home / ".npm");
    });
    CleanerOutcome outcome = pass(*npm);
    EXPECT_TRUE(outcome.failures.empty());
    EXPECT_EQ(outcome.trashedCount, 1);
    EXPECT_EQ(readFile(temp / "decoy/_cacache/precious"), std::string(10, 'x'));
    EXPECT_FALSE(fs::exists(folders.home / ".npm-aside/_cacache"));
    EXPECT_TRUE(fs::exists(trashFiles() / "_cacache/index"));

    // The target itself swapped while it moves: the stranger is put back, nothing is counted.
    fs::remove(folders.home / ".npm");
    fs::rename(folders.home / ".npm-aside", folders.home / ".npm");
    write(cache / "index", 10'000);
    trash.setBeforeRenameForTesting([&] {
        fs::rename(cache, folders.home / ".npm/checked");
        write(cache / "stranger", 5);
    });
    outcome = pass(*npm);
    ASSERT_EQ(outcome.failures.size(), 1u);
    EXPECT_NE(outcome.failures[0].find("swapped"), std::string::npos) << outcome.failures[0];
    EXPECT_EQ(outcome.freedBytes, 0);
    EXPECT_TRUE(fs::exists(cache / "stranger"));
    EXPECT_EQ(entriesIn(trashFiles()), 1u);
}

TEST_F(CleanerAttacksTest, ALinkOnTheWayIsRefusedForEveryCleanerKind) {
    const fs::path elsewhere = temp / "elsewhere";
    // npm: the tool's folder is a link to another one holding a cache.
    write(elsewhere / "npm/_cacache/keep", 10);
    fs::create_directory_symlink(elsewhere / "npm", folders.home / ".npm");
    // A browser's caches folder reached through a linked vendor folder.
    write(elsewhere / "brave/Brave-Browser/keep", 10);
    fs::create_directory_symlink(elsewhere / "brave", folders.cacheHome / "BraveSoftware");
    // Xcode's leftovers under a linked Library.
    write(elsewhere / "Library/Developer/Xcode/DerivedData/keep", 10);
    fs::create_directory_symlink(elsewhere / "Library", folders.home / "Library");
    // A browser profile that is a link, and a pip cache that is one.
    write(elsewhere / "profile/Service Worker/CacheStorage/keep", 10);
    fs::create_directories(folders.configHome / "google-chrome");
    fs::create_directory_symlink(elsewhere / "profile",
                                 folders.configHome / "google-chrome/Default");
    write(elsewhere / "pip/keep", 10);
    fs::create_directory_symlink(elsewhere / "pip", folders.cacheHome / "pip");

    const auto npm = DeveloperCleaners::make("npm", folders);
    const auto pip = DeveloperCleaners::make("pip", folders);
    const XcodeCleaner xcode(folders.home);
    const BrowserCleaner brave(browserNamed("Brave"), folders.configHome, folders.cacheHome);
    const BrowserCleaner chrome(browserNamed("Chrome"), folders.configHome, folders.cacheHome);

    EXPECT_EQ(
        pass(*npm).failures,
        std::vector<std::string>{"npm: refused " + (folders.home / ".npm/_cacache").string()});
    EXPECT_EQ(
        pass(brave).failures,
        std::vector<std::string>{"Brave: refused " +
                                 (folders.cacheHome / "BraveSoftware/Brave-Browser").string()});
    EXPECT_EQ(
        pass(xcode).failures,
        std::vector<std::string>{"Xcode: refused " +
                                 (folders.home / "Library/Developer/Xcode/DerivedData").string()});
    for (const Cleaner* cleaner :
         {static_cast<const Cleaner*>(pip.get()), static_cast<const Cleaner*>(&chrome)}) {
        const CleanerOutcome outcome = pass(*cleaner);
        EXPECT_EQ(outcome.trashedCount, 0) << cleaner->name();
        EXPECT_TRUE(outcome.completed);
    }
    for (const char* kept : {"npm/_cacache/keep", "brave/Brave-Browser/keep",
                             "Library/Developer/Xcode/DerivedData/keep",
                             "profile/Service Worker/CacheStorage/keep", "pip/keep"}) {
        EXPECT_TRUE(fs::exists(elsewhere / kept)) << kept;
    }
    EXPECT_EQ(entriesIn(trashFiles()), 0u);
}

TEST_F(CleanerAttacksTest, AMountInsideACacheKeepsItWhereItIsAndOutOfTheEstimate) {
    const fs::path cache = folders.home / ".npm/_cacache";
    write(cache / "own", 8'192);
    fs::create_directories(cache / "mounted");
    if (::mount("tmpfs", (cache / "mounted").c_str(), "tmpfs", 0, "size=1m") != 0) {
        GTEST_SKIP() << "cannot mount a file system here (not root)";
    }
    write(cache / "mounted/other", 200'000);
    const CleanerPath::Size size = CleanerPath::byteSizeCounting(cache);
    EXPECT_GE(size.bytes, 8'192);
    EXPECT_LT(size.bytes, 200'000);

    const CleanerOutcome outcome = pass(*DeveloperCleaners::make("npm", folders));
    ::umount2((cache / "mounted").c_str(), MNT_DETACH);
    ASSERT_EQ(outcome.failures.size(), 1u);
    EXPECT_NE(outcome.failures[0].find("mount point"), std::string::npos) << outcome.failures[0];
    EXPECT_EQ(outcome.freedBytes, 0);
    EXPECT_TRUE(fs::exists(cache / "own"));
    EXPECT_EQ(entriesIn(trashFiles()), 0u);
}

}  // namespace
}  // namespace kestrow
