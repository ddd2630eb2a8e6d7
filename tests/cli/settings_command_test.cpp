#include "cli/settings_command.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sstream>
#include <tuple>

#include "app/settings/settings_catalog.h"
#include "support/atomic_file.h"
#include "support/plist_value.h"
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
    // And start at login, which lives in the autostart entry.
    EXPECT_EQ(doc["standard"].size() + doc["shared"].size(), count + 1);
    EXPECT_EQ(doc["standard"]["startAtLogin"], false);
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
        {"set", "startAtLogin", "yes"},
        {"unset", "startAtLogin"},
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
    EXPECT_FALSE(std::filesystem::exists(home / ".config/autostart"));
}

TEST_F(SettingsCommandTest, AnOutOfRangeValueIsStoredAndTheValueReadInsteadIsNamed) {
    const std::vector<std::tuple<std::string, std::string, std::string>> outOfRange{
        {"hideIconDelaySeconds", "7", "1.0"},
        {"hideIconDelaySeconds", "0", "1.0"},
        {"nightlyBackupStartHour", "5", "3"},
        {"protectedThresholdHours", "-2", "24.0"},
        {"lastNotifiedProtectionCategory", "attention", "ok"},
    };
    for (const auto& [key, given, read] : outOfRange) {
        EXPECT_EQ(run({"set", key, given}), 0) << key;
        EXPECT_NE(err.str().find(key + " is stored as " + given), std::string::npos) << err.str();
        EXPECT_NE(err.str().find("Kestrow reads " + read + " instead"), std::string::npos)
            << err.str();
        EXPECT_TRUE(out.str().empty());
    }
    const auto stored = json();
    EXPECT_EQ(stored["standard"]["nightlyBackupStartHour"], 3);
    auto raw = PlistValue::parse(readFile(standardFile()).value_or(""));
    ASSERT_TRUE(raw);
    ASSERT_NE(raw->find("nightlyBackupStartHour"), nullptr);
    EXPECT_EQ(*raw->find("nightlyBackupStartHour")->asInteger(), 5) << "stored as given";

    // In range, and for keys without a range, nothing is said.
    for (const auto& [key, given] : std::vector<std::pair<std::string, std::string>>{
             {"hideIconDelaySeconds", "5"},
             {"nightlyBackupStartHour", "1"},
             {"protectedThresholdHours", "12"},
             {"notificationsEnabled", "false"},
             {"maintenanceLastFreed", R"({"npm": 5})"}}) {
        EXPECT_EQ(run({"set", key, given}), 0) << key;
        EXPECT_TRUE(err.str().empty()) << key << ": " << err.str();
    }
}

TEST_F(SettingsCommandTest, StartAtLoginIsTheAutostartEntry) {
    const auto entry = home / ".config/autostart/kestrow.desktop";
    EXPECT_EQ(run({"set", "startAtLogin", "true"}), 0) << err.str();
    EXPECT_EQ(json()["standard"]["startAtLogin"], true);
    ASSERT_TRUE(std::filesystem::exists(entry));
    EXPECT_EQ(readFile(entry)->find("Hidden=true"), std::string::npos);

    EXPECT_EQ(run({"set", "startAtLogin", "false"}), 0) << err.str();
    EXPECT_EQ(json()["standard"]["startAtLogin"], false);
    EXPECT_NE(readFile(entry)->find("Hidden=true"), std::string::npos)
        << "turned off in the entry, which also hides one installed for every user";
    EXPECT_FALSE(std::filesystem::exists(standardFile())) << "no second copy in the settings";

    ASSERT_EQ(run({}), 0);
    EXPECT_NE(out.str().find("startAtLogin"), std::string::npos);
    EXPECT_NE(out.str().find(entry.string()), std::string::npos);
}

// The snapshot in the shared store carries the threshold for whatever shows Kestrow's status:
// a new threshold reaches it at once.
TEST_F(SettingsCommandTest, ChangingASharedKeyStoresTheSnapshotAgain) {
    const std::string snapshot = R"({"destinations": [], "protectedThresholdHours": 24})";
    ASSERT_EQ(run({"set", "preferences", snapshot}), 0) << err.str();
    const auto thresholdInSnapshot = [&]() -> nlohmann::json {
        const auto store = PlistValue::parse(readFile(sharedFile()).value_or(""));
        const PlistValue* data = store ? store->find("preferences") : nullptr;
        if (data == nullptr || data->asData() == nullptr) return nullptr;
        const auto decoded =
            nlohmann::json::parse(data->asData()->begin(), data->asData()->end(), nullptr, false);
        return decoded.is_object() ? decoded.value("protectedThresholdHours", nlohmann::json())
                                   : nlohmann::json();
    };
    ASSERT_EQ(run({"set", "protectedThresholdHours", "12"}), 0) << err.str();
    EXPECT_EQ(thresholdInSnapshot(), 12.0);
    ASSERT_EQ(run({"unset", "protectedThresholdHours"}), 0) << err.str();
    EXPECT_TRUE(thresholdInSnapshot().is_null()) << "the default, as the store now says";
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
