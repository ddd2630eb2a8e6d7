// `kestrow clean` on a real temporary home: what moves to the real Trash, what a running tool
// keeps, and what the summary says.
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>

#include <nlohmann/json.hpp>

#include <cstdio>
#include <fstream>

#include "cleaners/free_up_summary.h"
#include "support/atomic_file.h"
#include "support/byte_count_format.h"
#include "support/shell_command.h"
#include "support/temp_folder.h"

extern "C" char** environ;

namespace kestrow {
namespace {

class CleanCommand : public ::testing::Test {
protected:
    std::string run(const std::string& args, int* status = nullptr) const {
        const char* binary = std::getenv("KESTROW_BINARY");
        if (binary == nullptr) return "KESTROW_BINARY is not set";
        const std::string command = "env -i HOME='" + home.path().string() + "' XDG_CONFIG_HOME='" +
                                    (home / ".config").string() + "' XDG_CACHE_HOME='" +
                                    (home / ".cache").string() + "' XDG_DATA_HOME='" +
                                    (home / ".local/share").string() + "' '" + binary + "' " +
                                    args + " 2>&1";
        auto shell = testing::runShell(command);
        if (status != nullptr) *status = shell.status;
        return std::move(shell.out);
    }
    nlohmann::json json(const std::string& args) const {
        return nlohmann::json::parse(run(args + " --json"), nullptr, false);
    }
    void fill(const std::string& folder, std::size_t bytes) const {
        std::filesystem::create_directories(home / folder);
        home.write(folder + "/blob", std::string(bytes, 'x'));
    }
    std::vector<std::string> trashInfoPaths() const {
        std::vector<std::string> paths;
        const auto info = home / ".local/share/Trash/info";
        if (!std::filesystem::exists(info)) return paths;
        for (const auto& entry : std::filesystem::directory_iterator(info)) {
            const auto text = readFile(entry.path()).value_or("");
            const auto at = text.find("Path=");
            paths.push_back(text.substr(at + 5, text.find('\n', at) - at - 5));
        }
        std::sort(paths.begin(), paths.end());
        return paths;
    }

    testing::TempFolder home;
};

TEST_F(CleanCommand, MovesWhatIsOnToTheTrashAndSaysSoExactly) {
    // Caches whose tools are unlikely to run beside the tests: other tests start processes named
    // npm and python, and an owner that runs keeps its cache.
    fill(".cache/Homebrew/downloads", 40'000);
    fill(".cache/pip/http", 20'000);
    fill(".config/google-chrome/Profile 2/Service Worker/CacheStorage/ab", 30'000);
    fill(".config/google-chrome/Guest Profile/Service Worker/CacheStorage/cd", 30'000);
    fill("keep/me", 10'000);

    EXPECT_EQ(run("clean"), "Nothing to clear\n") << "nothing is on yet";
    EXPECT_TRUE(trashInfoPaths().empty());
    EXPECT_EQ(run("clean --estimate"), "Turn on a cleaner in Weekly cleaners\n");

    for (const char* key : {"maintenanceEnabled.homebrew", "browserReclaimEnabled"})
        ASSERT_EQ(run(std::string("settings set ") + key + " true"), "");
    const auto estimate = json("clean --estimate");
    EXPECT_GE(estimate["estimateBytes"].get<std::int64_t>(), 70'000);

    const auto result = json("clean");
    EXPECT_EQ(result["trashedCount"], 2);
    EXPECT_EQ(result["reclaimed"], nlohmann::json({"Homebrew", "Chrome"}));
    const auto freed = result["freedBytes"].get<std::int64_t>();
    EXPECT_GE(freed, 70'000) << "allocated sizes of both caches";
    EXPECT_EQ(result["summary"],
              "Moved " + formatByteCount(freed) + " to the Trash; empty it to reclaim the space");
    // Percent-encoded as the desktop's Trash expects; "Restore" puts each back where it was.
    EXPECT_EQ(
        trashInfoPaths(),
        (std::vector<std::string>{
            (home / ".cache/Homebrew").string(),
            (home / ".config/google-chrome/Profile%202/Service%20Worker/CacheStorage").string()}));
    EXPECT_TRUE(std::filesystem::exists(home / ".cache/pip/http/blob")) << "pip is off";
    EXPECT_TRUE(std::filesystem::exists(
        home / ".config/google-chrome/Guest Profile/Service Worker/CacheStorage/cd/blob"));
    EXPECT_TRUE(std::filesystem::exists(home / "keep/me/blob"));

    const auto rows = json("cleaners");
    ASSERT_EQ(rows["developer"][3]["id"], "homebrew");
    const auto brewFreed = rows["developer"][3]["lastFreed"].get<std::int64_t>();
    EXPECT_GE(brewFreed, 40'000);
    EXPECT_LT(brewFreed, freed);
    EXPECT_EQ(rows["developer"][3]["caption"],
              "Last: moved " + formatByteCount(brewFreed) + " to the Trash · " +
                  CleanerCaption::shortDate(std::chrono::system_clock::now()));
    EXPECT_EQ(rows["browsers"]["accessCaption"], nullptr);
}

// A move that was refused is not "Nothing to clear": the line says what stayed and why.
TEST_F(CleanCommand, ARefusedMoveIsNamedInsteadOfNothingToClear) {
    fill("elsewhere/Brave-Browser/keep", 10'000);
    std::filesystem::create_directories(home / ".cache");
    std::filesystem::create_directory_symlink(home / "elsewhere", home / ".cache/BraveSoftware");
    ASSERT_EQ(run("settings set browserReclaimEnabled true"), "");
    int status = -1;
    const std::string refused =
        "Brave: refused " + (home / ".cache/BraveSoftware/Brave-Browser").string();
    // The log's error line goes to standard error, which run() appends.
    const std::string out = run("clean", &status);
    EXPECT_TRUE(out.ends_with("\nNot moved: " + refused + "\n  " + refused + "\n")) << out;
    EXPECT_EQ(out.find("Nothing to clear"), std::string::npos) << out;
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(std::filesystem::exists(home / "elsewhere/Brave-Browser/keep/blob"));
    EXPECT_TRUE(trashInfoPaths().empty());
}

// A tool that runs keeps its cache: the cleaner is skipped whole and named, and stays due.
TEST_F(CleanCommand, ARunningToolKeepsItsCacheWhole) {
    fill(".npm/_cacache/index-v5", 40'000);
    fill(".cache/Homebrew/downloads", 20'000);
    ASSERT_EQ(run("settings set maintenanceEnabled.npm true"), "");
    ASSERT_EQ(run("settings set maintenanceEnabled.homebrew true"), "");

    // A process whose name is "npm": a copy of sleep under that name.
    const auto tool = home / "npm";
    std::filesystem::copy_file("/bin/sleep", tool);
    std::string path = tool.string();
    std::string seconds = "30";
    char* argv[] = {path.data(), seconds.data(), nullptr};
    pid_t pid = -1;
    ASSERT_EQ(::posix_spawn(&pid, path.c_str(), nullptr, nullptr, argv, environ), 0);

    const auto result = json("clean");
    ::kill(pid, SIGKILL);
    ::waitpid(pid, nullptr, 0);

    EXPECT_EQ(result["skippedRunning"], nlohmann::json({"npm"}));
    EXPECT_EQ(result["reclaimed"], nlohmann::json({"Homebrew"}));
    EXPECT_EQ(result["summary"].get<std::string>().substr(
                  result["summary"].get<std::string>().find(". ")),
              ". Skipped while running: npm");
    EXPECT_TRUE(std::filesystem::exists(home / ".npm/_cacache/index-v5/blob"));
    EXPECT_EQ(json("cleaners")["developer"][1]["lastRun"], nullptr) << "npm stays due";
}

}  // namespace
}  // namespace kestrow
