#include "cli/settings_command.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sstream>

#include "app/settings/settings_catalog.h"
#include "support/atomic_file.h"
#include "support/temp_folder.h"

namespace kestrow {
namespace {

class SettingsCommandTest : public ::testing::Test {
protected:
    testing::TempFolder home;
    std::ostringstream out;
    std::ostringstream err;

    int run(std::vector<std::string> args) {
        out.str("");
        err.str("");
        return runSettingsCommand(
            CommandContext{std::move(args), out, err, home.homeEnvironment()});
    }
    std::filesystem::path standardFile() const {
        return home / ".config/kestrow/bar.vemb.orvel.plist";
    }
    std::filesystem::path sharedFile() const {
        return home / ".config/kestrow/QX7T2LM9KA.bar.vemb.orvel.plist";
    }
    nlohmann::json json() {
        EXPECT_EQ(run({"--json"}), 0);
        return nlohmann::json::parse(out.str());
    }
};

TEST_F(SettingsCommandTest, JsonReportsEveryKeyWithItsEffectiveValue) {
    const auto doc = json();
    std::size_t count = 0;
    for (const auto& setting : settingDescriptors()) {
        const char* group = setting.domain == SettingsDomain::standard ? "standard" : "shared";
        EXPECT_TRUE(doc[group].contains(setting.name)) << setting.name;
        ++count;
    }
    EXPECT_EQ(doc["standard"].size() + doc["shared"].size(), count);
    EXPECT_EQ(doc["standard"]["notificationsEnabled"], true);
    EXPECT_EQ(doc["standard"]["hideIconDelaySeconds"], 1.0);
    EXPECT_EQ(doc["standard"]["nightlyBackupStartHour"], 3);
    EXPECT_EQ(doc["standard"]["maintenanceEnabled.homebrew"], false);
    EXPECT_EQ(doc["standard"]["ownedMounts"], nlohmann::json::array());
    EXPECT_TRUE(doc["shared"]["destinationReachable"].is_null())
        << "not known is null, never a made-up default";
    EXPECT_EQ(doc["shared"]["protectedThresholdHours"], 24.0);
    EXPECT_FALSE(std::filesystem::exists(standardFile())) << "reading writes nothing";
}

TEST_F(SettingsCommandTest, SetWritesTheKeysOwnTypeToItsOwnStoreAndUnsetRemovesIt) {
    EXPECT_EQ(run({"set", "nightlyBackupStartHour", "2"}), 0);
    EXPECT_EQ(run({"set", "hideIconDelaySeconds", "7"}), 0);  // stored, but out of range on read
    EXPECT_EQ(run({"set", "destinationReachable", "false"}), 0);
    EXPECT_EQ(run({"set", "nightlyBackupLastStart", "2026-11-21T02:00:00+01:00"}), 0);
    EXPECT_EQ(run({"set", "maintenanceLastFreed", R"({"npm": 1200000})"}), 0);
    EXPECT_EQ(run({"set", "duplicateFinderFolders", R"(["/srv/photos", "/home/me/Music"])"}), 0);
    auto doc = json();
    EXPECT_EQ(doc["standard"]["nightlyBackupStartHour"], 2);
    EXPECT_EQ(doc["standard"]["hideIconDelaySeconds"], 1.0);
    EXPECT_EQ(doc["shared"]["destinationReachable"], false);
    EXPECT_EQ(doc["standard"]["nightlyBackupLastStart"], "2026-11-21T01:00:00Z");
    EXPECT_EQ(doc["standard"]["maintenanceLastFreed"]["npm"], 1200000);
    EXPECT_EQ(doc["standard"]["duplicateFinderFolders"][1], "/home/me/Music");
    EXPECT_NE(readFile(sharedFile())->find("destinationReachable"), std::string::npos);
    EXPECT_EQ(readFile(standardFile())->find("destinationReachable"), std::string::npos);

    EXPECT_EQ(run({"unset", "destinationReachable"}), 0);
    EXPECT_TRUE(json()["shared"]["destinationReachable"].is_null());
}

TEST_F(SettingsCommandTest, RefusesUnknownKeysWrongTypesAndBadUsageWithNothingWritten) {
    const std::vector<std::vector<std::string>> refused{
        {"set", "noSuchKey", "1"},
        {"set", "nightlyBackupStartHour", "two"},
        {"set", "nightlyBackupStartHour", "2.5"},
        {"set", "notificationsEnabled", "yes"},
        {"set", "hideIconDelaySeconds", "nan"},
        {"set", "nightlyBackupLastStart", "yesterday"},
        {"set", "maintenanceLastFreed", R"({"npm": "lots"})"},
        {"set", "browserReclaimLastRuns", R"({"chrome": 5})"},
        {"set", "duplicateFinderFolders", "/not/json"},
        {"set", "ownedMounts", "{broken"},
        {"set", "notificationsEnabled"},
        {"unset", "noSuchKey"},
        {"unset"},
        {"frobnicate"},
        {"--json", "extra"},
    };
    for (const auto& args : refused) {
        EXPECT_EQ(run(args), 2) << args[0];
        EXPECT_FALSE(err.str().empty());
        EXPECT_NE(err.str().find("usage: kestrow settings"), std::string::npos);
        EXPECT_TRUE(out.str().empty());
    }
    EXPECT_FALSE(std::filesystem::exists(standardFile()));
    EXPECT_FALSE(std::filesystem::exists(sharedFile()));
}

TEST_F(SettingsCommandTest, HumanFormListsBothStoresInTableOrder) {
    ASSERT_EQ(run({}), 0);
    const std::string text = out.str();
    const auto standard = text.find("Standard settings");
    const auto shared = text.find("Shared settings");
    ASSERT_NE(standard, std::string::npos);
    ASSERT_NE(shared, std::string::npos);
    EXPECT_LT(text.find("notificationsEnabled"), text.find("ownedMounts"));
    EXPECT_GT(text.find("protectedThresholdHours"), shared);
    EXPECT_NE(text.find("destinationReachable               not set"), std::string::npos);
}

}  // namespace
}  // namespace kestrow
