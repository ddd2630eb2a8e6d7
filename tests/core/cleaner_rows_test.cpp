#include "menu/cleaner_rows.h"

#include <gtest/gtest.h>

#include "app/settings/settings_keys.h"
#include "support/recording_log_sink.h"
#include "support/temp_folder.h"

namespace kestrow {
namespace {

std::vector<std::string> ids(const std::vector<CleanerRows::Developer>& rows) {
    std::vector<std::string> out;
    for (const auto& row : rows) out.push_back(row.id);
    return out;
}

TEST(CleanerRows, TheMenuOffersOnlyCleanersAvailableNowEvenWhenOthersAreSwitchedOn) {
    testing::TempFolder home;
    testing::RecordingLogSink sink;
    const UserLocations folders = UserLocations::resolve(home.homeEnvironment());
    SettingsStore standard(folders.standardStoreFile(), Logger(sink, LogArea::general));
    std::filesystem::create_directories(home / ".npm/_cacache");
    // Switched on once, but this machine has no pip cache and no Xcode.
    standard.set(keys::maintenanceEnabled("pip"), PlistValue(true));
    standard.set(keys::maintenanceEnabled("xcode"), PlistValue(true));

    const auto offered = CleanerRows::offered(standard, folders, false);
    EXPECT_EQ(ids(offered), std::vector<std::string>{"npm"});
    ASSERT_EQ(offered.size(), 1u);
    EXPECT_TRUE(offered[0].available);
    EXPECT_FALSE(offered[0].enabled);

    // The full list still says what is switched on and what is missing.
    const auto all = CleanerRows::developer(standard, folders, false);
    EXPECT_EQ(ids(all), (std::vector<std::string>{"xcode", "npm", "pip", "homebrew"}));
    EXPECT_TRUE(all[2].enabled);
    EXPECT_FALSE(all[2].available);

    // Cleared by its last pass: the cache is in the Trash, and the row stays with what it freed.
    standard.set(keys::maintenanceEnabled("npm"), PlistValue(true));
    standard.set(keys::maintenanceLastFreed,
                 PlistValue(PlistDict{{"npm", PlistValue(3'100'000)}, {"pip", PlistValue(0)}}));
    std::filesystem::remove(home / ".npm/_cacache");
    EXPECT_EQ(ids(CleanerRows::offered(standard, folders, false)), std::vector<std::string>{"npm"});
    standard.set(keys::maintenanceEnabled("npm"), PlistValue(false));
    EXPECT_TRUE(CleanerRows::offered(standard, folders, false).empty())
        << "switched off, a missing cache has no row";
    std::filesystem::create_directories(home / ".npm/_cacache");

    // The cache comes back, and so does its row, still switched on.
    std::filesystem::create_directories(home / ".cache/pip");
    const auto later = CleanerRows::offered(standard, folders, false);
    EXPECT_EQ(ids(later), (std::vector<std::string>{"npm", "pip"}));
    EXPECT_TRUE(later[1].enabled);
    // A link where the Homebrew cache should be is not a cache.
    std::filesystem::create_directory_symlink(home / ".npm", home / ".cache/Homebrew");
    EXPECT_EQ(ids(CleanerRows::offered(standard, folders, true)),
              (std::vector<std::string>{"xcode", "npm", "pip"}));
}

}  // namespace
}  // namespace kestrow
