#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>

#include "support/atomic_file.h"
#include "support/shell_command.h"
#include "support/temp_folder.h"

namespace kestrow {
namespace {

bool onPath(const std::string& program) {
    return testing::runShell("command -v " + program + " >/dev/null 2>&1").status == 0;
}

// A user's session as a new Linux user has it: a private session bus with gnome-keyring's
// Secret Service unlocked, real restic, and Kestrow's commands run one after the other in it.
// Each step writes its standard output, error and exit status to files in the home folder.
class BackupsCommand : public ::testing::Test {
protected:
    void SetUp() override {
        if (std::getenv("KESTROW_BINARY") == nullptr) GTEST_SKIP() << "KESTROW_BINARY is not set";
        if (!onPath("restic") || !onPath("gnome-keyring-daemon") || !onPath("gdbus"))
            GTEST_SKIP() << "restic, gnome-keyring or gdbus is not installed";
        std::filesystem::create_directories(home / "docs");
        std::filesystem::create_directories(home / "run");
        std::filesystem::permissions(home / "run", std::filesystem::perms::owner_all);
        home.write("docs/letter.txt", "Dear Ada");
    }

    // `steps`: lines "NAME|ARGUMENTS|STANDARD INPUT", or "!SHELL COMMAND".
    void runSession(const std::vector<std::string>& steps) {
        std::string script =
            "printf %s keyring | gnome-keyring-daemon --foreground --unlock "
            "--components=secrets >/dev/null 2>&1 & KR=$!\n"
            "for i in $(seq 1 200); do gdbus call --session -d org.freedesktop.DBus -o "
            "/org/freedesktop/DBus -m org.freedesktop.DBus.NameHasOwner org.freedesktop.secrets "
            "2>/dev/null | grep -q true && break; sleep 0.05; done\n";
        for (const std::string& step : steps) {
            if (step.front() == '!') {
                script += step.substr(1) + "\n";
                continue;
            }
            const auto first = step.find('|');
            const auto second = step.find('|', first + 1);
            const std::string name = step.substr(0, first);
            const std::string args = step.substr(first + 1, second - first - 1);
            const std::string input = step.substr(second + 1);
            script += "printf '%s\\n' '" + input + "' | \"$K\" " + args + " >'" + name +
                      ".out' 2>'" + name + ".err'; echo $? >'" + name + ".rc'\n";
        }
        script += "kill $KR; wait $KR 2>/dev/null; exit 0\n";
        home.write("session.sh", script);
        const std::string h = home.path().string();
        const auto outcome =
            testing::runShell("cd '" + h + "' && env -i HOME='" + h + "' XDG_RUNTIME_DIR='" + h +
                              "/run' PATH=/usr/bin:/bin K='" + std::getenv("KESTROW_BINARY") +
                              "' dbus-run-session -- sh session.sh >/dev/null 2>&1");
        ASSERT_EQ(outcome.status, 0);
    }
    std::string out(const std::string& step) {
        return readFile(home / (step + ".out")).value_or("");
    }
    std::string err(const std::string& step) {
        return readFile(home / (step + ".err")).value_or("");
    }
    int rc(const std::string& step) {
        return std::stoi(readFile(home / (step + ".rc")).value_or("-1"));
    }

    testing::TempFolder home;
};

TEST_F(BackupsCommand, ANewJobBacksUpWithRealResticAndTheVerdictTurnsProtected) {
    const std::string repo = (home / "drive" / "restic").string();
    const std::string docs = (home / "docs").string();
    runSession({"add|backups add --name Home --repository " + repo + " --path " + docs +
                    " --init|correct horse",
                "now|backup-now --wait --json|", "status|status --json|", "list|backups --json|"});
    ASSERT_EQ(rc("add"), 0) << err("add");
    ASSERT_EQ(rc("now"), 0) << err("now") << out("now");
    const auto now = nlohmann::json::parse(out("now"), nullptr, false);
    EXPECT_EQ(now["succeeded"], true) << out("now");

    const auto status = nlohmann::json::parse(out("status"), nullptr, false);
    EXPECT_EQ(status["source"], nlohmann::json({{"kind", "restic"}, {"name", "restic"}}));
    EXPECT_EQ(status["state"], "protected") << out("status");
    EXPECT_EQ(status["destination"]["name"], "Home");
    EXPECT_EQ(status["backupCount"], 1);

    const auto list = nlohmann::json::parse(out("list"), nullptr, false);
    ASSERT_EQ(list["jobs"].size(), 1u) << out("list");
    EXPECT_FALSE(list["jobs"][0]["lastAttempt"]["snapshot"].is_null());
    EXPECT_EQ(list["jobs"][0]["lastAttempt"]["exitStatus"], 0);
    // The password is in the keyring, not in any file of ours.
    for (const auto& entry : std::filesystem::recursive_directory_iterator(home / ".local")) {
        if (!entry.is_regular_file()) continue;
        EXPECT_EQ(readFile(entry.path()).value_or("").find("correct horse"), std::string::npos)
            << entry.path();
    }
}

TEST_F(BackupsCommand, RefusedJobsAndFailedBackupsSayWhyInWords) {
    const std::string repo = (home / "drive" / "restic").string();
    const std::string docs = (home / "docs").string();
    runSession({"made|backups add --name Home --repository " + repo + " --path " + docs +
                    " --init|correct horse",
                "wrong|backups add --name Again --repository " + repo + " --path " + docs +
                    "|battery staple",
                "nothing|backups add --name Nowhere --repository " + (home / "none").string() +
                    " --path " + docs + "|correct horse",
                "!mv drive drive.away", "now|backup-now --wait|", "status|status --json|"});
    ASSERT_EQ(rc("made"), 0) << err("made");
    EXPECT_EQ(rc("wrong"), 1);
    EXPECT_EQ(err("wrong"), "kestrow backups add: The repository password is wrong\n");
    EXPECT_EQ(rc("nothing"), 1);
    EXPECT_EQ(err("nothing"),
              "kestrow backups add: No backup repository was found at the backup location\n");

    // The repository went away after the job was made: the attempt fails, says why, and the
    // verdict carries the same words.
    EXPECT_EQ(rc("now"), 1);
    EXPECT_EQ(out("now"), "No backup repository was found at the backup location\n");
    const auto status = nlohmann::json::parse(out("status"), nullptr, false);
    ASSERT_TRUE(status["reasons"].is_array()) << out("status");
    EXPECT_NE(std::find(status["reasons"].begin(), status["reasons"].end(),
                        "No backup repository was found at the backup location"),
              status["reasons"].end())
        << out("status");
    EXPECT_EQ(status["lastAttemptFailed"], true);
}

}  // namespace
}  // namespace kestrow
