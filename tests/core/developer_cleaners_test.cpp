#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <fstream>

#include "cleaners/apple_build.h"
#include "cleaners/cleaner_path.h"
#include "cleaners/developer_cleaners.h"
#include "cleaners/device_support.h"
#include "cleaners/package_cache_cleaner.h"
#include "cleaners/xcode_cleaner.h"
#include "support/temp_folder.h"

namespace kestrow {
namespace {

namespace fs = std::filesystem;
using testing::TempFolder;

AppleBuild build(std::string_view text) {
    const auto parsed = AppleBuild::parse(text);
    EXPECT_TRUE(parsed.has_value()) << text;
    return parsed.value_or(AppleBuild{});
}

TEST(AppleBuildTest, ParsesTheFourPartsAndRefusesAnythingElse) {
    EXPECT_EQ(build("21A5277h"), (AppleBuild{21, 'A', 5277, "h"}));
    EXPECT_EQ(build("8C1002"), (AppleBuild{8, 'C', 1002, ""}));
    EXPECT_EQ(build("21A329b.x"), (AppleBuild{21, 'A', 329, "b.x"}));
    for (const std::string_view bad : {"", "A329", "21", "21A", "21AB1", "(21A329)", " 21A329",
                                       "99999999999A1", "21A99999999999"}) {
        EXPECT_EQ(AppleBuild::parse(bad), std::nullopt) << bad;
    }
}

TEST(AppleBuildTest, SeedsComeBeforeTheFinalBuildOfTheirTrain) {
    EXPECT_LT(build("21A5277h"), build("21A329"));
    EXPECT_LT(build("21A329"), build("21B80"));
    EXPECT_FALSE(build("21A329") < build("21A5277h"));
    // Numbers compare as numbers, not as text.
    EXPECT_LT(build("9A100"), build("10A1"));
    EXPECT_LT(build("21A99"), build("21A100"));
    // Between two seeds, or two finals, the number decides before the suffix.
    EXPECT_LT(build("21A100z"), build("21A200a"));
    EXPECT_LT(build("21A329a"), build("21A329b"));
    // A seed of the next train still ranks above every build of the one before.
    EXPECT_LT(build("21A9999"), build("21B1a"));
    EXPECT_FALSE(build("21B80") < build("21B80"));
}

TEST(DeviceSupportTest, ParsesOnlyNamesSpelledLikeXcodesFolders) {
    const auto entry = DeviceSupport::parse("iPhone15,2 17.0.3 (21A360)");
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->model, "iPhone15,2");
    EXPECT_EQ(entry->version, (std::vector<int>{17, 0, 3}));
    EXPECT_EQ(entry->build, (AppleBuild{21, 'A', 360, ""}));
    EXPECT_EQ(entry->name, "iPhone15,2 17.0.3 (21A360)");

    for (const std::string_view bad :
         {"Extra", "iPhone15,2 17.x (21A329)", "17.0 (21A329)", "iPhone15,2 17 (21A329)",
          "iPhone15,2 17.0 21A329", "iPhone15,2 17.0 (21A329", "iPhone15,2  17.0 (21A329)",
          "iPhone 15 17.0 (21A329)", "iPhone15-2 17.0 (21A329)", "iPhone15,2 17..0 (21A329)",
          "iPhone15,2 17.0 (21A329) arm64e", "iPhone15,2 17.0 ()",
          "iPhone15,2 17.99999999999 (21A329)"}) {
        EXPECT_EQ(DeviceSupport::parse(bad), std::nullopt) << bad;
    }
}

TEST(DeviceSupportTest, KeepsOnlyTheNewestOfEachModel) {
    EXPECT_EQ(DeviceSupport::superseded({"iPhone15,2 17.0 (21A329)", "iPhone15,2 17.1 (21B80)",
                                         "iPhone15,2 17.1 (21B91)"}),
              (std::vector<std::string>{"iPhone15,2 17.0 (21A329)", "iPhone15,2 17.1 (21B80)"}));

    // Models stand apart; names that do not parse are never taken, nor do they outrank anything.
    EXPECT_EQ(
        DeviceSupport::superseded({"Extra", "iPhone15,2 17.x (21A329)", "iPhone15,2 17.0 (21A329)",
                                   "iPad13,1 16.2 (20C65)", "iPhone14,5 18.0 (22A3354)"}),
        std::vector<std::string>{});

    // Versions compare part by part as numbers, a missing part counting as 0.
    EXPECT_EQ(DeviceSupport::superseded({"iPhone15,2 17.10 (21Z1)", "iPhone15,2 17.9 (21A1)"}),
              (std::vector<std::string>{"iPhone15,2 17.9 (21A1)"}));
    EXPECT_EQ(DeviceSupport::superseded({"iPhone15,2 17.1.1 (21B101)", "iPhone15,2 17.1 (21B80)"}),
              (std::vector<std::string>{"iPhone15,2 17.1 (21B80)"}));
    EXPECT_EQ(DeviceSupport::superseded({"iPhone15,2 17.1.0 (21B80)", "iPhone15,2 17.1 (21B91)"}),
              (std::vector<std::string>{"iPhone15,2 17.1.0 (21B80)"}));
    // A seed gives way to the final build even with a larger number.
    EXPECT_EQ(DeviceSupport::superseded({"iPhone15,2 17.0 (21A5277h)", "iPhone15,2 17.0 (21A329)"}),
              (std::vector<std::string>{"iPhone15,2 17.0 (21A5277h)"}));
    // Two spellings of the very same release: neither outranks the other, both stay.
    EXPECT_EQ(DeviceSupport::superseded({"iPhone15,2 17.1 (21B80)", "iPhone15,2 17.1.0 (21B80)"}),
              std::vector<std::string>{});
}

class XcodeCleanerTest : public ::testing::Test {
protected:
    TempFolder temp;
    XcodeCleaner cleaner{temp.path()};
    fs::path support = temp / "Library/Developer/Xcode/iOS DeviceSupport";
    fs::path derived = temp / "Library/Developer/Xcode/DerivedData";

    fs::path addSupport(const std::string& name) {
        fs::create_directories(support / name / "Symbols");
        return support / name;
    }
};

TEST_F(XcodeCleanerTest, FindsDerivedDataAndTheSupersededDeviceSupport) {
    EXPECT_EQ(cleaner.discover(), CleanerDiscovery{});  // nothing there at all

    fs::create_directories(derived / "App-abc" / "Build");
    const auto old1 = addSupport("iPhone15,2 17.0 (21A329)");
    const auto old2 = addSupport("iPhone15,2 17.1 (21B80)");
    const auto newest = addSupport("iPhone15,2 17.1 (21B91)");
    const auto otherModel = addSupport("iPad13,1 16.2 (20C65)");
    const auto extra = addSupport("Extra");
    // A file or a link named like a newer build is not a folder Xcode uses: it outranks nothing.
    std::ofstream(support / "iPad13,1 18.0 (22A3354)") << "x";
    fs::create_directory_symlink(otherModel, support / "iPad13,1 18.1 (22B83)");

    EXPECT_EQ(cleaner.discover(),
              (CleanerDiscovery{{derived, old1, old2}, std::nullopt, {temp.path()}}));

    EXPECT_TRUE(cleaner.isReclaimable(derived));
    EXPECT_TRUE(cleaner.isReclaimable(old1));
    for (const auto& path : {newest, otherModel, extra, derived / "App-abc", support,
                             temp / "Library/Developer/Xcode", fs::path(old1.string() + "/"),
                             support / "." / old1.filename(), support / "iPad13,1 18.1 (22B83)"}) {
        EXPECT_FALSE(cleaner.isReclaimable(path)) << path;
    }

    // The re-check reads the folder as it is now: once the newest is gone, the next one is.
    fs::remove_all(newest);
    EXPECT_FALSE(cleaner.isReclaimable(old2));
    EXPECT_TRUE(cleaner.isReclaimable(old1));
}

TEST_F(XcodeCleanerTest, RefusesFoldersSwappedForLinksBetweenDiscoveryAndTheMove) {
    const auto old = addSupport("iPhone15,2 17.0 (21A329)");
    addSupport("iPhone15,2 17.1 (21B80)");
    fs::create_directories(derived);
    const auto discovery = cleaner.discover();
    ASSERT_EQ(discovery.targets, (std::vector<fs::path>{derived, old}));

    const fs::path precious = temp / "precious";
    fs::create_directories(precious);
    fs::remove_all(old);
    fs::create_directory_symlink(precious, old);
    fs::remove_all(derived);
    fs::create_directory_symlink(precious, derived);
    EXPECT_FALSE(cleaner.isReclaimable(old));
    EXPECT_FALSE(cleaner.isReclaimable(derived));
    EXPECT_EQ(cleaner.discover(), CleanerDiscovery{});

    // A device-support folder that is itself a link is not read at all.
    fs::remove(old);
    const fs::path elsewhere = temp / "elsewhere";
    fs::rename(support, elsewhere);
    fs::create_directories(elsewhere / "iPhone15,2 16.0 (20A362)");
    fs::create_directory_symlink(elsewhere, support);
    EXPECT_EQ(cleaner.discover(), CleanerDiscovery{});
    EXPECT_FALSE(cleaner.isReclaimable(support / "iPhone15,2 16.0 (20A362)"));
}

// Root reads through any permission, so the unreadable folder is met as the nobody user.
TEST_F(XcodeCleanerTest, AnUnreadableDeviceSupportFolderBlocksThePass) {
    addSupport("iPhone15,2 17.0 (21A329)");
    addSupport("iPhone15,2 17.1 (21B80)");
    // Everyone may walk down to the folder; no one but its owner's write and search remain.
    for (fs::path p = support.parent_path(); p != temp.path().parent_path(); p = p.parent_path()) {
        fs::permissions(p, fs::perms::others_exec, fs::perm_options::add);
    }
    fs::permissions(support, fs::perms::owner_write | fs::perms::owner_exec);
    const pid_t child = ::fork();
    if (child == 0) {
        if (::geteuid() == 0 &&
            (::setgroups(0, nullptr) != 0 || ::setgid(65534) != 0 || ::setuid(65534) != 0)) {
            ::_exit(3);
        }
        const auto found = cleaner.discover();
        const bool blocked = found.targets.empty() && found.error &&
                             found.error->status == PathStatus::notPermitted &&
                             found.error->text.find("iOS DeviceSupport") != std::string::npos;
        ::_exit(blocked ? 0 : 1);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    fs::permissions(support, fs::perms::owner_all);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST(PackageCacheCleanerTest, TakesExactlyItsOneRealFolder) {
    TempFolder temp;
    const PackageCacheCleaner cleaner("npm", "npm", temp.path(), {".npm", "_cacache"}, {});
    const fs::path cache = temp / ".npm/_cacache";
    EXPECT_EQ(cleaner.discover(), CleanerDiscovery{});

    fs::create_directories(cache / "index-v5");
    EXPECT_EQ(cleaner.discover(), (CleanerDiscovery{{cache}, std::nullopt, {temp.path()}}));
    EXPECT_TRUE(cleaner.isReclaimable(cache));
    for (const auto& path : {temp / ".npm", cache / "index-v5", temp / ".npm/./_cacache",
                             fs::path(cache.string() + "/"), temp / ".npm/_cacache2"}) {
        EXPECT_FALSE(cleaner.isReclaimable(path)) << path;
    }

    fs::remove_all(cache);
    fs::create_directories(temp / "other");
    fs::create_directory_symlink(temp / "other", cache);
    EXPECT_EQ(cleaner.discover(), CleanerDiscovery{});
    EXPECT_FALSE(cleaner.isReclaimable(cache));
}

TEST(DeveloperCleanersTest, EveryRowMakesItsCleanerAndHomebrewIsKnownByItsInstallPath) {
    TempFolder temp;
    const auto folders = UserLocations::resolve(temp.homeEnvironment());
    for (const auto& id : DeveloperCleaners::ids()) {
        const auto cleaner = DeveloperCleaners::make(id, folders);
        ASSERT_NE(cleaner, nullptr) << id;
        EXPECT_EQ(cleaner->id(), id);
        EXPECT_EQ(cleaner->name(), DeveloperCleaners::name(id));
    }
    EXPECT_EQ(DeveloperCleaners::make("cargo", folders), nullptr);
    EXPECT_EQ(DeveloperCleaners::title("cargo"), "");

    // brew's work is done by a Ruby of its own, not by a process called brew.
    const auto brew = DeveloperCleaners::make("homebrew", folders)->owner();
    EXPECT_TRUE(brew.matches(
        {"ruby", "/opt/brew/Homebrew/Library/Homebrew/vendor/portable-ruby/bin/ruby"}));
    EXPECT_FALSE(brew.matches({"ruby", "/usr/bin/ruby"}));
}

TEST(DeveloperCleanersTest, AvailableFollowsTheCacheFoldersThatExist) {
    TempFolder temp;
    const auto folders = UserLocations::resolve(
        temp.homeEnvironment({{"XDG_CACHE_HOME", (temp / "xdg-cache").string()}}));
    EXPECT_EQ(DeveloperCleaners::availableIDs(false, folders), std::set<std::string>{});
    EXPECT_EQ(DeveloperCleaners::availableIDs(true, folders), std::set<std::string>{"xcode"});

    fs::create_directories(temp / ".npm/_cacache");
    fs::create_directories(temp / "xdg-cache/pip");
    fs::create_directories(temp / ".cache/Homebrew");  // not where this user's caches are
    EXPECT_EQ(DeveloperCleaners::availableIDs(false, folders),
              (std::set<std::string>{"npm", "pip"}));

    fs::create_directories(temp / "xdg-cache/Homebrew/downloads");
    fs::remove_all(temp / ".npm/_cacache");
    EXPECT_EQ(DeveloperCleaners::availableIDs(true, folders),
              (std::set<std::string>{"xcode", "pip", "homebrew"}));
    // Xcode's folders do not make it available: only an installed Xcode does.
    fs::create_directories(temp / "Library/Developer/Xcode/DerivedData");
    EXPECT_EQ(DeveloperCleaners::availableIDs(false, folders),
              (std::set<std::string>{"pip", "homebrew"}));
}

}  // namespace
}  // namespace kestrow
