#include "platform/linux/proc_running_processes.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "support/atomic_file.h"
#include "support/temp_folder.h"

extern char** environ;

namespace kestrow {

static void PrintTo(const RunningProcess& process, std::ostream* out) {
    *out << '"' << process.name << "\" at " << process.path.value_or("<no path>");
}

namespace {

namespace fs = std::filesystem;
using kestrow::testing::TempFolder;
using namespace std::string_literals;

// A copy of sleep under a chosen name, running until killed.
class SleepingProcess {
public:
    explicit SleepingProcess(const fs::path& executable) {
        fs::copy_file("/bin/sleep", executable);
        std::string program = executable.string();
        std::string seconds = "600";
        char* argv[] = {program.data(), seconds.data(), nullptr};
        if (::posix_spawn(&pid_, program.c_str(), nullptr, nullptr, argv, environ) != 0) pid_ = 0;
        // posix_spawn returns while the kernel is still finishing the exec, before the new
        // program's arguments can be read; a real browser has long been past that point.
        const auto cmdline = fs::path("/proc") / std::to_string(pid_) / "cmdline";
        for (int i = 0; pid_ > 0 && i < 400 && kestrow::readFile(cmdline).value_or("").empty(); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    ~SleepingProcess() { stop(); }
    SleepingProcess(const SleepingProcess&) = delete;
    SleepingProcess& operator=(const SleepingProcess&) = delete;

    bool started() const { return pid_ > 0; }
    void stop() {
        if (pid_ <= 0) return;
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
        pid_ = 0;
    }

private:
    pid_t pid_ = 0;
};

// Listed with this name and executable, and the arguments it was started with.
bool lists(const ProcessListing& listing, const RunningProcess& process) {
    return listing && std::any_of(listing->begin(), listing->end(), [&](const RunningProcess& row) {
               return row.name == process.name && row.path == process.path &&
                      row.arguments == std::vector<std::string>{*process.path, "600"};
           });
}

TEST(ProcRunningProcessesTest, RealProcessesAreListedByNameAndExecutableUntilTheyEnd) {
    const TempFolder folder;
    const fs::path bin = fs::canonical(folder.path());
    SleepingProcess brave(bin / "brave");
    // Longer than the kernel keeps, and its file deleted while it runs.
    SleepingProcess helper(bin / "chromium-browser-test-helper");
    ASSERT_TRUE(brave.started());
    ASSERT_TRUE(helper.started());
    fs::remove(bin / "chromium-browser-test-helper");

    ProcRunningProcesses processes;
    const ProcessListing listing = processes.current();
    ASSERT_TRUE(listing);
    EXPECT_TRUE(lists(listing, {"brave", (bin / "brave").string()}));
    EXPECT_TRUE(lists(listing, {"chromium-browser-test-helper",
                                (bin / "chromium-browser-test-helper").string()}));

    brave.stop();
    const ProcessListing after = processes.current();
    ASSERT_TRUE(after);
    EXPECT_FALSE(std::any_of(after->begin(), after->end(), [&](const RunningProcess& p) {
        return p.path == (bin / "brave").string();
    }));
    EXPECT_TRUE(lists(
        after, {"chromium-browser-test-helper", (bin / "chromium-browser-test-helper").string()}));
}

TEST(ProcRunningProcessesTest, AnUnlistableRootIsNoTable) {
    const TempFolder folder;
    folder.write("file", "not a folder");
    EXPECT_EQ(ProcRunningProcesses(folder / "missing").current(), std::nullopt);
    EXPECT_EQ(ProcRunningProcesses(folder / "file").current(), std::nullopt);
}

TEST(ProcRunningProcessesTest, OddEntriesOfAFakeRootAreSkippedAndCutNamesCompleted) {
    const TempFolder root;
    root.write("self/comm", "self\n");
    root.write("abc/comm", "letters\n");
    root.write("12/cmdline", "/usr/bin/no-comm\0"s);
    root.write("13", "a file, not a process");
    fs::create_directories(root / "14/comm");
    root.write("20/comm", "plain\n");
    fs::create_symlink("/usr/bin/plain (deleted)", root / "20/exe");
    // Cut by the kernel; the program rewrote its title into one spaced element.
    root.write("21/comm", "chromium-browse\n");
    root.write("21/cmdline",
               "/usr/lib/chromium-browser/chromium-browser --type=gpu --dir=/tmp/x\0"s);
    // Fifteen characters that are not a cut name: another program started it through a link.
    root.write("22/comm", "exactly-fifteen\n");
    root.write("22/cmdline", "/bin/other\0-x\0"s);
    // A cut name whose cmdline was emptied.
    root.write("23/comm", "chromium-browse\n");
    root.write("23/cmdline", "");
    // Empty arguments are kept, the padding after a rewritten title is not.
    root.write("24/comm", "node\n");
    root.write("24/cmdline", "node\0\0-e\0\0\0"s);

    const ProcessListing listing = ProcRunningProcesses(root.path()).current();
    ASSERT_TRUE(listing);
    std::vector<RunningProcess> sorted = *listing;
    std::sort(sorted.begin(), sorted.end(),
              [](const RunningProcess& a, const RunningProcess& b) { return a.name < b.name; });
    EXPECT_EQ(sorted, (std::vector<RunningProcess>{
                          {"chromium-browse", std::nullopt, {}},
                          {"chromium-browser",
                           std::nullopt,
                           {"/usr/lib/chromium-browser/chromium-browser --type=gpu --dir=/tmp/x"}},
                          {"exactly-fifteen", std::nullopt, {"/bin/other", "-x"}},
                          {"node", std::nullopt, {"node", "", "-e"}},
                          {"plain", "/usr/bin/plain", {}}}));
}

}  // namespace
}  // namespace kestrow
