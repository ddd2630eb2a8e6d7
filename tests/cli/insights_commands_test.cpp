// The insight commands: `drive-health` as the real binary with a real (fake) smartctl process,
// `unused-apps` and `startup-items` in-process against folders of their own.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

#include "cli/startup_items_command.h"
#include "cli/unused_apps_command.h"
#include "support/atomic_file.h"
#include "support/iso_date.h"
#include "support/plist_value.h"
#include "support/shell_command.h"
#include "support/temp_folder.h"

namespace kestrow {
namespace {

using nlohmann::json;

class DriveHealthCommand : public ::testing::Test {
protected:
    DriveHealthCommand() {
        // Whatever disk this machine boots from, the answer is that it is failing.
        home.write("smartctl/output.json",
                   R"({"device": {"type": "sat"}, "smart_status": {"passed": false}})");
        home.write("smartctl/exit", "8");
    }

    struct Outcome {
        int status = -1;
        std::string out;
    };
    Outcome run(const std::string& args) const {
        const char* binary = std::getenv("KESTROW_BINARY");
        if (binary == nullptr) return {-1, "KESTROW_BINARY is not set"};
        const std::string command =
            "env -i HOME='" + home.path().string() + "' XDG_CONFIG_HOME='" +
            (home / ".config").string() + "' KESTROW_TM_PLIST='" + (home / "tm.plist").string() +
            "' KESTROW_SMARTCTL='" + KESTROW_FAKE_SMARTCTL_PATH + "' FAKE_SMARTCTL_DIR='" +
            (home / "smartctl").string() + "' '" + binary + "' drive-health " + args + " 2>&1";
        const auto shell = testing::runShell(command);
        return {shell.status, shell.out};
    }
    json runJson() const {
        const Outcome r = run("--json");
        EXPECT_EQ(r.status, 0) << r.out;
        const auto document = json::parse(r.out, nullptr, false);
        EXPECT_FALSE(document.is_discarded()) << "standard output is one JSON document:\n" << r.out;
        return document;
    }
    std::string calls() const { return readFile(home / "smartctl/calls.log").value_or(""); }
    void writeSettings(PlistDict destination) const {
        destination["DestinationID"] = "D-1";
        home.write("tm.plist", PlistValue(PlistDict{{"Destinations", PlistArray{destination}},
                                                    {"LastDestinationID", "D-1"}})
                                   .toXml());
    }

    testing::TempFolder home;
};

TEST_F(DriveHealthCommand, ReportsTheBootDiskAndNeverAsksAboutANetworkDestination) {
    writeSettings(
        {{"LastKnownVolumeName", "Vault"}, {"NetworkURL", "smb://tm@nas.local/TimeMachine"}});
    const auto document = runJson();
    // A machine booted from something without a disk (a container's overlay) asks nothing, and
    // says so.
    const json boot = calls().empty()
                          ? json{{"status", "unknown"}, {"text", "its disk was not found"}}
                          : json{{"status", "failing"}, {"text", "Failing"}};
    EXPECT_EQ(document,
              (json{{"boot", boot}, {"backup", {{"status", "notApplicable"}, {"text", nullptr}}}}));
    const std::string asked = calls();
    EXPECT_LE(std::count(asked.begin(), asked.end(), '\n'), 1) << asked;
    EXPECT_EQ(asked.find("-j -H -i /dev/"), asked.empty() ? std::string::npos : 0u) << asked;
}

TEST_F(DriveHealthCommand, ALocalDiskThatIsNotMountedIsNotConnectedAndNoSettingsMeanNoBackup) {
    writeSettings({{"LastKnownVolumeName", "No Such Volume 7f3c"},
                   {"DestinationUUIDs", PlistArray{"00000000-0000-4000-8000-00000000dead"}}});
    EXPECT_EQ(runJson()["backup"], (json{{"status", "unavailable"}, {"text", "not connected"}}));
    const auto text = run("");
    EXPECT_EQ(text.status, 0);
    EXPECT_NE(text.out.find("Backup disk: unavailable (not connected)\n"), std::string::npos)
        << text.out;

    std::filesystem::remove(home / "tm.plist");
    EXPECT_TRUE(runJson()["backup"].is_null());
    EXPECT_NE(run("").out.find("Backup disk: no backup destination\n"), std::string::npos);
    const auto wrong = run("--verbose");
    EXPECT_EQ(wrong.status, 2);
    EXPECT_NE(wrong.out.find("usage: kestrow drive-health [--json]"), std::string::npos);
}

class InsightsInProcess : public ::testing::Test {
protected:
    template <typename Command>
    int run(Command command, std::vector<std::string> args) {
        out.str("");
        err.str("");
        return command(
            CommandContext{std::move(args), out, err,
                           home.homeEnvironment({{"XDG_DATA_DIRS", (home / "system").string()}})});
    }

    testing::TempFolder home;
    std::ostringstream out;
    std::ostringstream err;
};

TEST_F(InsightsInProcess, UnusedAppsListsTheLongUnopenedOnesOrSaysThereAreNone) {
    EXPECT_EQ(run(runUnusedAppsCommand, {}), 0);
    EXPECT_EQ(out.str(), "None unopened for 180 days\n");

    home.write("system/applications/notes.desktop",
               "[Desktop Entry]\nType=Application\nName=Notes\nExec=notes-editor %F\n");
    const std::string used =
        formatIsoDate(addSeconds(std::chrono::system_clock::now(), -200 * 86'400.0));
    home.write(".local/share/recently-used.xbel",
               "<xbel><bookmark href=\"file:///a\"><info><metadata>"
               "<bookmark:application name=\"Notes\" exec=\"&apos;notes-editor %f&apos;\" "
               "modified=\"" +
                   used + "\" count=\"1\"/></metadata></info></bookmark></xbel>");
    EXPECT_EQ(run(runUnusedAppsCommand, {"--json"}), 0);
    EXPECT_EQ(json::parse(out.str()),
              (json::array({{{"path", (home / "system/applications/notes.desktop").string()},
                             {"lastUsed", used}}})));
    EXPECT_EQ(run(runUnusedAppsCommand, {}), 0);
    EXPECT_EQ(out.str(), used.substr(0, 10) + "  " +
                             (home / "system/applications/notes.desktop").string() + "\n");
    EXPECT_EQ(run(runUnusedAppsCommand, {"--all"}), 2);
    EXPECT_NE(err.str().find("usage: kestrow unused-apps [--json]"), std::string::npos);
}

TEST_F(InsightsInProcess, StartupItemsPutTheUsersOwnFirst) {
    home.write(".config/autostart/sync.desktop",
               "[Desktop Entry]\nType=Application\nName=Sync\nExec=/opt/sync/sync --quiet\n");
    EXPECT_EQ(run(runStartupItemsCommand, {"--json"}), 0);
    const auto list = json::parse(out.str());
    ASSERT_TRUE(list.is_array());
    ASSERT_GE(list.size(), 1u);
    EXPECT_EQ(list[0], (json{{"label", "Sync"},
                             {"program", "/opt/sync/sync"},
                             {"file", (home / ".config/autostart/sync.desktop").string()},
                             {"scope", "userAgent"}}));
    // The rest is this machine's own, and none of it is the user's.
    for (std::size_t i = 1; i < list.size(); ++i) EXPECT_NE(list[i]["scope"], "userAgent");

    EXPECT_EQ(run(runStartupItemsCommand, {}), 0);
    EXPECT_EQ(out.str().rfind("Started when you log in:\n  Sync  /opt/sync/sync  ", 0), 0u)
        << out.str();
}

}  // namespace
}  // namespace kestrow
