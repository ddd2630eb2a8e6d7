// `kestrow status` as a status bar runs it: the real binary, a real settings plist, and a real
// (fake) Time Machine tool process.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "insights/hog_store.h"
#include "support/atomic_file.h"
#include "support/plist_value.h"
#include "support/shell_command.h"
#include "support/temp_folder.h"

namespace kestrow {
namespace {

struct Outcome {
    int status = -1;
    std::string out;
    std::string err;
};

class StatusCommand : public ::testing::Test {
protected:
    StatusCommand() {
        std::filesystem::create_directories(home / "fake");
        answerStatus(notRunning());
    }

    Outcome run(const std::string& args, const std::string& settingsFile = "") {
        const char* binary = std::getenv("KESTROW_BINARY");
        if (binary == nullptr) return {-1, "", "KESTROW_BINARY is not set"};
        const auto err = home / "stderr.txt";
        const std::string command =
            "env -i HOME='" + home.path().string() + "' XDG_CONFIG_HOME='" +
            (home / ".config").string() + "' XDG_CACHE_HOME='" + (home / ".cache").string() +
            "' KESTROW_TM_PLIST='" +
            (settingsFile.empty() ? (home / "tm.plist").string() : settingsFile) +
            "' KESTROW_TMUTIL='" + KESTROW_FAKE_TMUTIL_PATH + "' FAKE_TMUTIL_DIR='" +
            (home / "fake").string() + "' '" + binary + "' " + args + " 2>'" + err.string() + "'";
        const auto shell = testing::runShell(command);
        Outcome result{shell.status, shell.out, ""};
        result.err = readFile(err).value_or("");
        return result;
    }

    nlohmann::json runJson(const std::string& args = "status --json") {
        const Outcome r = run(args);
        EXPECT_EQ(r.status, 0) << r.err;
        const auto json = nlohmann::json::parse(r.out, nullptr, false);
        EXPECT_FALSE(json.is_discarded()) << "standard output is one JSON document:\n" << r.out;
        return json;
    }

    WallTime hoursAgo(double hours) const {
        return addSeconds(std::chrono::system_clock::now(), -hours * 3600.0);
    }

    static std::string notRunning() {
        return PlistValue(PlistDict{{"BackupPhase", "BackupNotRunning"}, {"Running", 0}}).toXml();
    }
    void answerStatus(const std::string& output) const { home.write("fake/status.out", output); }

    static PlistDict destination(std::string id, std::string volume,
                                 std::vector<WallTime> snapshots, std::vector<WallTime> attempts,
                                 int result) {
        PlistArray snapshotDates(snapshots.begin(), snapshots.end());
        PlistArray attemptDates(attempts.begin(), attempts.end());
        return {{"DestinationID", std::move(id)},
                {"LastKnownVolumeName", std::move(volume)},
                {"SnapshotDates", std::move(snapshotDates)},
                {"AttemptDates", std::move(attemptDates)},
                {"RESULT", result},
                {"BytesUsed", 1000}};
    }
    void writeSettings(PlistArray destinations, const std::string& lastID) const {
        home.write("tm.plist", PlistValue(PlistDict{{"Destinations", std::move(destinations)},
                                                    {"LastDestinationID", lastID},
                                                    {"AutoBackup", true}})
                                   .toXml());
    }

    testing::TempFolder home;
};

TEST_F(StatusCommand, ARecentLocalBackupIsProtectedAndTheSharedStoreGetsTheSnapshot) {
    const auto recent = hoursAgo(3.2);
    writeSettings(
        {destination("LOCAL-1", "Backups", {hoursAgo(27), recent}, {hoursAgo(27), recent}, 0)},
        "LOCAL-1");
    const auto json = runJson();
    EXPECT_EQ(json["state"], "protected");
    EXPECT_EQ(json["reasons"], nlohmann::json({"Last successful backup 3 hours ago"}));
    EXPECT_EQ(json["lastAttemptFailed"], false);
    EXPECT_EQ(json["destination"], nlohmann::json({{"id", "LOCAL-1"},
                                                   {"name", "Backups"},
                                                   {"isNetwork", false},
                                                   {"reachable", nullptr}}));
    EXPECT_EQ(json["backupCount"], 2);
    EXPECT_EQ(json["live"], nlohmann::json({{"running", false},
                                            {"phase", "BackupNotRunning"},
                                            {"percent", nullptr},
                                            {"progressLine", nullptr},
                                            {"timeRemaining", nullptr}}));
    EXPECT_EQ(json["source"], nlohmann::json({{"kind", "timeMachine"}, {"name", "Time Machine"}}));
    ASSERT_EQ(json["history"].size(), 2u);
    EXPECT_EQ(json["history"][0]["succeeded"], true);
    EXPECT_EQ(json["rings"]["backupCount"], 2);
    EXPECT_TRUE(json["alerts"].is_array());
    EXPECT_TRUE(std::filesystem::exists(home / ".config/kestrow/QX7T2LM9KA.bar.vemb.orvel.plist"));
    EXPECT_NE(readFile(home / "fake/calls.log").value_or("").find("status -X"), std::string::npos);
}

TEST_F(StatusCommand, AFailedAttemptOnAnUnreachableNetworkDestinationExplainsItself) {
    // Nothing listens on the loopback's file-sharing port, so the probe is refused at once.
    auto vault = destination("NET-1", "Vault", {hoursAgo(30)}, {hoursAgo(30), hoursAgo(2)}, 19);
    vault["NetworkURL"] = "smb://tm@127.0.0.1/TimeMachine";
    writeSettings({vault}, "NET-1");
    const auto json = runJson();
    EXPECT_EQ(json["state"], "unavailable");
    EXPECT_EQ(json["reasons"],
              nlohmann::json(
                  {"Last successful backup 30 hours ago", "Last backup attempt did not complete",
                   "Time Machine didn't say why (code 19)", "Backup destination is offline"}));
    EXPECT_EQ(json["lastAttemptFailed"], true);
    EXPECT_EQ(json["destination"]["reachable"], false);
    EXPECT_EQ(json["history"][0]["succeeded"], false);
    EXPECT_EQ(json["rings"]["failedCount"], 1);
}

TEST_F(StatusCommand, ARunningBackupShowsItsProgressAndABinaryPlistReadsTheSame) {
    const auto recent = hoursAgo(1.5);
    writeSettings({destination("LOCAL-1", "Backups", {recent}, {recent}, 0)}, "LOCAL-1");
    answerStatus(PlistValue(PlistDict{{"BackupPhase", "Copying"},
                                      {"Running", 1},
                                      {"Progress", PlistDict{{"Percent", 0.427}}}})
                     .toXml());
    const auto xml = runJson();
    EXPECT_EQ(xml["live"]["progressLine"], "Backing up — copying files · 42%");
    EXPECT_EQ(xml["reasons"],
              nlohmann::json({"Last successful backup 1 hour ago", "Backup in progress"}));

    // The same settings in the binary format Time Machine writes.
    ASSERT_EQ(
        std::system(("python3 -c 'import plistlib,sys; d=plistlib.load(open(sys.argv[1],\"rb\"));"
                     " plistlib.dump(d, open(sys.argv[1],\"wb\"), fmt=plistlib.FMT_BINARY)' '" +
                     (home / "tm.plist").string() + "'")
                        .c_str()),
        0);
    ASSERT_EQ(readFile(home / "tm.plist").value_or("").substr(0, 6), "bplist");
    EXPECT_EQ(runJson()["reasons"], xml["reasons"]);
}

TEST_F(StatusCommand, AlertsComeInMenuOrderFromTheSettingsAndTheHogWatchsSnapshots) {
    // Automatic backups off, the nightly backup never turned on, and a backup disk with under 2%
    // of its room left.
    auto disk = destination("LOCAL-1", "Backups", {hoursAgo(3)}, {hoursAgo(3)}, 0);
    disk["BytesAvailable"] = 9;
    home.write("tm.plist", PlistValue(PlistDict{{"Destinations", PlistArray{disk}},
                                                {"LastDestinationID", "LOCAL-1"},
                                                {"AutoBackup", false}})
                               .toXml());
    // The hog watch saw a folder appear at 8 GB in a day while free space fell from 36 to 28 GB:
    // full in three days.
    const HogStore store(home / ".local/share/Orvel/sizes");
    const std::string videos = (home / "Videos").string();
    ASSERT_TRUE(store.save({hoursAgo(48), 36'000'000'000, {{"/home", 1'000'000'000}}}));
    ASSERT_TRUE(store.save({hoursAgo(24), 28'000'000'000, {{videos, 8'000'000'000}}}));

    const auto alerts = runJson()["alerts"];
    ASSERT_EQ(alerts.size(), 4u) << alerts.dump(1);
    EXPECT_EQ(alerts[0], nlohmann::json({{"kind", "unscheduled"},
                                         {"headline", "No backups scheduled."},
                                         {"explanation",
                                          "Automatic backups and Nightly backup are both off, so "
                                          "nothing will back this computer up."},
                                         {"action", "Turn on Nightly backup"}}));
    EXPECT_EQ(alerts[1]["kind"], "hog");
    EXPECT_EQ(alerts[1]["explanation"], "At this rate your disk is full in 3 days");
    EXPECT_EQ(alerts[1]["folder"], videos);
    EXPECT_EQ(alerts[2]["kind"], "space");
    EXPECT_EQ(alerts[3]["kind"], "retention");
    EXPECT_EQ(alerts[3]["explanation"], nullptr);

    const Outcome human = run("status");
    EXPECT_NE(human.out.find("Alerts:\n  No backups scheduled. Automatic backups"),
              std::string::npos)
        << human.out;
}

TEST_F(StatusCommand, WithoutAnyBackupSourceItSaysSoAndTheDemoNeedsNone) {
    // No restic job, no Déjà Dup and no Time Machine settings file: nothing is set up, which is
    // a verdict, not an error.
    const Outcome missing = run("status");
    EXPECT_EQ(missing.status, 0) << missing.err;
    EXPECT_EQ(missing.out, "Stale\n  No backup is set up\n");
    EXPECT_EQ(runJson()["source"], nullptr);

    // Garbage where the plist should be is "no settings": not configured, not a crash.
    home.write("tm.plist", "<?xml version=\"1.0\"?><plist><dict><key>Destinations");
    EXPECT_EQ(runJson()["reasons"], nlohmann::json({"No backup is set up"}));

    const auto demo = runJson("status --demo --json");
    EXPECT_EQ(demo["source"], nlohmann::json({{"kind", "restic"}, {"name", "restic"}}));
    EXPECT_EQ(demo["state"], "protected");
    EXPECT_EQ(demo["live"]["running"], true);
    EXPECT_EQ(demo["destination"]["name"], "Home → Backup Disk");
    EXPECT_GE(demo["rings"]["gaps"].size(), 1u);
    EXPECT_EQ(demo["reasons"].back(), "The backup disk is not connected");
    std::vector<std::string> demoAlerts;
    for (const auto& alert : demo["alerts"]) demoAlerts.push_back(alert["kind"]);
    EXPECT_EQ(demoAlerts, (std::vector<std::string>{"space"}));
    // The demo keeps to its own stores.
    EXPECT_TRUE(std::filesystem::exists(home / ".cache/kestrow/demo"));

    const Outcome human = run("status --demo");
    EXPECT_EQ(human.status, 0);
    EXPECT_EQ(human.out.rfind("Protected\n  Last successful backup 2 hours ago\n", 0), 0u)
        << human.out;

    EXPECT_EQ(run("status --verbose").status, 2);
}

}  // namespace
}  // namespace kestrow
