#include "platform/linux/process_time_machine_tools.h"

#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <QObject>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/linux/system_clock.h"
#include "platform/linux/tool_process.h"
#include "support/recording_log_sink.h"
#include "support/temp_folder.h"
#include "support/virtual_scheduler.h"
#include "wait_until.h"

namespace kestrow {
namespace {

using kestrow::testing::TempFolder;
using kestrow::testing::waitUntil;
using namespace std::chrono_literals;

const std::string kFakeTool = KESTROW_FAKE_TMUTIL_PATH;
// The tools remember a missing program on a clock; these tests never wait long enough for that
// memory to lapse, so the system's clock serves.
SystemClock systemClock;

// A folder the fake tool answers from, named to it through the environment it inherits.
class FakeToolFolder : public TempFolder {
public:
    FakeToolFolder() { ::setenv("FAKE_TMUTIL_DIR", path().c_str(), 1); }
    ~FakeToolFolder() { ::unsetenv("FAKE_TMUTIL_DIR"); }

    std::string calls() const {
        std::ifstream in(*this / "calls.log", std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }

    // Fake-tool processes of this test, running or left as zombies: our own children (a zombie
    // keeps its name and parent), and any process that inherited this folder (an orphan).
    int processes() const {
        const std::string marker = "FAKE_TMUTIL_DIR=" + path().string() + '\0';
        int count = 0;
        for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
            const std::string name = entry.path().filename().string();
            if (name.find_first_not_of("0123456789") != std::string::npos) continue;
            std::ifstream statFile(entry.path() / "stat");
            const std::string stat(std::istreambuf_iterator<char>(statFile), {});
            const auto open = stat.find('(');
            const auto close = stat.rfind(')');
            if (open == std::string::npos || close == std::string::npos || close < open) continue;
            if (stat.substr(open + 1, close - open - 1) != "fake_tmutil") continue;
            const std::string rest = stat.substr(close + 2);  // "S 1234 ..."
            const int parent = std::atoi(rest.c_str() + rest.find(' ') + 1);
            std::ifstream environFile(entry.path() / "environ", std::ios::binary);
            const std::string environ(std::istreambuf_iterator<char>(environFile), {});
            if (parent == ::getpid() || environ.find(marker) != std::string::npos) ++count;
        }
        return count;
    }
};

// Starts `call` and waits for the answer it hands to its callback, checking that the answer
// comes later, on this thread.
template <typename Answer, typename Call>
std::optional<Answer> answerOf(Call call, std::chrono::milliseconds timeout = 5s) {
    std::optional<Answer> answer;
    bool onThisThread = false;
    const auto thisThread = std::this_thread::get_id();
    call([&](Answer a) {
        EXPECT_FALSE(answer) << "answered twice";
        onThisThread = std::this_thread::get_id() == thisThread;
        answer = std::move(a);
    });
    EXPECT_FALSE(answer) << "answered before returning";
    EXPECT_TRUE(waitUntil([&] { return answer.has_value(); }, timeout));
    EXPECT_TRUE(!answer || onThisThread);
    return answer;
}

std::optional<std::optional<std::string>> statusOf(ProcessTimeMachineTools& tools) {
    return answerOf<std::optional<std::string>>([&](auto done) { tools.status(done); });
}

std::optional<StartBackupOutcome> startOf(ProcessTimeMachineTools& tools) {
    return answerOf<StartBackupOutcome>([&](auto done) { tools.startBackup(done); });
}

TEST(ProcessTimeMachineTools, StatusPassesTheToolsOutputThroughWhateverItIs) {
    FakeToolFolder folder;
    ProcessTimeMachineTools tools(kFakeTool, systemClock, std::nullopt);

    // No output at all is an answer, not a failure.
    EXPECT_EQ(statusOf(tools), std::optional<std::string>(""));

    // Bytes no text reader would keep: NUL, CR, invalid UTF-8, a binary plist header.
    using namespace std::string_literals;
    const std::string binary = "bplist00\x00\xD8\r\n\xFF\xFE garbage \x00\x01"s;
    folder.write("status.out", binary);
    EXPECT_EQ(statusOf(tools), std::optional<std::string>(binary));

    // Read again on every call; large answers arrive whole; the exit code does not matter.
    std::string large;
    for (int i = 0; large.size() < 3 * 1024 * 1024; ++i) large += std::to_string(i) + '\0';
    folder.write("status.out", large);
    folder.write("status.exit", "3");
    folder.write("status.err", "status: something went wrong\n");
    const auto answer = statusOf(tools);
    ASSERT_TRUE(answer && *answer);
    EXPECT_EQ(answer->value().size(), large.size());
    EXPECT_TRUE(answer->value() == large);

    EXPECT_EQ(folder.calls(), "status -X\nstatus -X\nstatus -X\n");
}

TEST(ProcessTimeMachineTools, StartBackupTellsAcceptedFromRefused) {
    FakeToolFolder folder;
    ProcessTimeMachineTools tools(kFakeTool, systemClock, std::nullopt);
    EXPECT_EQ(startOf(tools), StartBackupOutcome{StartBackupOutcome::Accepted{}});
    folder.write("startbackup.exit", "3");
    folder.write("startbackup.out", "Backup session could not be started.\n");
    EXPECT_EQ(startOf(tools), StartBackupOutcome{StartBackupOutcome::Refused{3}});
    EXPECT_EQ(folder.calls(), "startbackup\nstartbackup\n");
}

TEST(ProcessTimeMachineTools, ASlowToolIsStoppedAtItsLimitAndLeavesNoProcessBehind) {
    FakeToolFolder folder;
    folder.write("status.out", "partial answer");
    folder.write("status.delay", "20");
    folder.write("startbackup.delay", "20");
    ProcessTimeMachineTools tools(kFakeTool, systemClock, std::nullopt, 0.5, 0.5);

    std::optional<std::optional<std::string>> status;
    const auto started = std::chrono::steady_clock::now();
    tools.status([&](std::optional<std::string> output) { status = std::move(output); });
    // The check below can see the tool while it runs.
    ASSERT_TRUE(waitUntil([&] { return !folder.calls().empty(); }));
    EXPECT_EQ(folder.processes(), 1);
    ASSERT_TRUE(waitUntil([&] { return status.has_value(); }));
    EXPECT_LT(std::chrono::steady_clock::now() - started, 5s);
    EXPECT_EQ(*status, std::nullopt);
    EXPECT_EQ(folder.processes(), 0);

    EXPECT_EQ(startOf(tools), StartBackupOutcome{StartBackupOutcome::LaunchFailed{
                                  "it did not answer within 0.5 seconds"}});
    EXPECT_EQ(folder.processes(), 0);
}

TEST(ProcessTimeMachineTools, AMissingToolAnswersNothingAndSaysWhy) {
    FakeToolFolder folder;
    folder.write("not-a-program", "just text");
    const std::vector<std::pair<std::string, std::string>> cases = {
        {(folder / "no-such-tool").string(), "No such file or directory"},
        {(folder / "not-a-program").string(), "Permission denied"},
        {folder.path().string(), "Permission denied"},
        {"", "No program defined"}};
    for (const auto& [program, reason] : cases) {
        ProcessTimeMachineTools tools(program, systemClock, std::nullopt);
        const auto status = statusOf(tools);
        ASSERT_TRUE(status);
        EXPECT_EQ(*status, std::nullopt);
        const auto outcome = startOf(tools);
        ASSERT_TRUE(outcome);
        const auto* failed = std::get_if<StartBackupOutcome::LaunchFailed>(&outcome->value);
        ASSERT_NE(failed, nullptr) << program;
        EXPECT_EQ(failed->error, reason);
    }
}

TEST(ProcessTimeMachineTools, DestroyedWhileTheToolRunsItStopsItAndReportsNothing) {
    FakeToolFolder folder;
    folder.write("status.delay", "20");
    folder.write("startbackup.delay", "20");
    bool reported = false;
    auto tools = std::make_unique<ProcessTimeMachineTools>(kFakeTool, systemClock, std::nullopt);
    tools->status([&](std::optional<std::string>) { reported = true; });
    tools->startBackup([&](StartBackupOutcome) { reported = true; });
    ASSERT_TRUE(waitUntil([&] { return folder.calls().size() == 22; }));  // both, in any order
    EXPECT_EQ(folder.processes(), 2);
    tools.reset();
    EXPECT_EQ(folder.processes(), 0);

    // A later run that has answered means the event loop went past anything still queued.
    folder.write("status.delay", "0");
    ProcessTimeMachineTools other(kFakeTool, systemClock, std::nullopt);
    EXPECT_TRUE(statusOf(other));
    EXPECT_FALSE(reported);

    // The answer may be the last thing a tools object sees.
    auto doomed = std::make_unique<ProcessTimeMachineTools>(kFakeTool, systemClock, std::nullopt);
    bool answered = false;
    doomed->status([&](std::optional<std::string>) {
        doomed.reset();
        answered = true;
    });
    EXPECT_TRUE(waitUntil([&] { return answered; }));
}

TEST(ProcessTimeMachineTools, TheEnvironmentCanNameAnotherTool) {
    const auto lookup = [](std::optional<std::string> value) {
        return [value](std::string_view name) -> std::optional<std::string> {
            return name == "KESTROW_TMUTIL" ? value : std::nullopt;
        };
    };
    EXPECT_EQ(ProcessTimeMachineTools::program(lookup("/opt/tm/tmutil")), "/opt/tm/tmutil");
    EXPECT_EQ(ProcessTimeMachineTools::program(lookup("")), "/usr/bin/tmutil");
    EXPECT_EQ(ProcessTimeMachineTools::program(lookup(std::nullopt)), "/usr/bin/tmutil");
}

TEST(ToolProcess, KeepsStandardErrorApartAndTellsHowTheToolEnded) {
    FakeToolFolder folder;
    folder.write("status.out", "out");
    folder.write("status.err", "err");
    folder.write("status.exit", "2");
    const auto run = [](std::string program, std::vector<std::string> arguments) {
        return answerOf<ToolResult>(
            [&](auto done) { ToolProcess::run(program, arguments, 5.0, done); });
    };
    const auto exited = run(kFakeTool, {"status", "-X"});
    ASSERT_TRUE(exited);
    EXPECT_EQ(exited->ending, ToolResult::Ending::exited);
    EXPECT_EQ(exited->exitCode, 2);
    EXPECT_EQ(exited->standardOutput, "out");
    EXPECT_EQ(exited->errorText, "err");

    const auto usage = run(kFakeTool, {"status"});
    ASSERT_TRUE(usage);
    EXPECT_EQ(usage->exitCode, 64);
    EXPECT_EQ(usage->errorText, "usage: fake_tmutil status -X | startbackup\n");

    // A tool killed by a signal crashed; it did not exit with some code.
    const auto crashed = run("/bin/sh", {"-c", "echo partial; kill -SEGV $$"});
    ASSERT_TRUE(crashed);
    EXPECT_EQ(crashed->ending, ToolResult::Ending::crashed);
    EXPECT_EQ(crashed->standardOutput, "partial\n");

    const auto missing = run((folder / "missing").string(), {});
    ASSERT_TRUE(missing);
    EXPECT_EQ(missing->ending, ToolResult::Ending::failedToStart);
    EXPECT_EQ(missing->errorText, "No such file or directory");
}

bool processExists(pid_t pid) {
    // A zombie is gone for our purposes: it holds nothing but its exit status.
    std::ifstream statFile("/proc/" + std::to_string(pid) + "/stat");
    const std::string stat(std::istreambuf_iterator<char>(statFile), {});
    const auto close = stat.rfind(')');
    return close != std::string::npos && stat.size() > close + 2 && stat[close + 2] != 'Z';
}

TEST(ToolProcess, AToolKilledAtItsLimitTakesTheProcessesItStartedWithIt) {
    TempFolder folder;
    const std::string pidFile = (folder / "child.pid").string();
    // The child is started in the background and outlives a kill of its parent alone.
    const auto result = answerOf<ToolResult>([&](auto done) {
        ToolProcess::run("/bin/sh",
                         {"-c", "sleep 300 & echo $! > '" + pidFile + "'; echo started; wait"}, 0.5,
                         done);
    });
    ASSERT_TRUE(result);
    EXPECT_EQ(result->ending, ToolResult::Ending::timedOut);
    EXPECT_EQ(result->standardOutput, "started\n");
    std::ifstream in(pidFile);
    pid_t child = 0;
    ASSERT_TRUE(in >> child);
    ASSERT_GT(child, 1);
    const bool gone = waitUntil([&] { return !processExists(child); }, 3s);
    if (!gone) ::kill(child, SIGKILL);
    EXPECT_TRUE(gone) << "the tool's child " << child << " was left running";
}

TEST(ToolProcess, AToolThatFloodsItsOutputIsStoppedAtTheLimitWithItsChildren) {
    const auto started = std::chrono::steady_clock::now();
    // Both the tool and a child it started write without end.
    const auto result = answerOf<ToolResult>(
        [&](auto done) {
            ToolProcess::run("/bin/sh", {"-c", "yes child & yes parent"}, 60.0, done);
        },
        50s);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->ending, ToolResult::Ending::tooMuchOutput);
    EXPECT_EQ(result->standardOutput.size(), ToolProcess::kOutputLimit);
    EXPECT_LT(std::chrono::steady_clock::now() - started, 50s) << "stopped long before its limit";

    // Just under the limit still arrives whole, as an answer.
    const auto whole = answerOf<ToolResult>(
        [&](auto done) {
            ToolProcess::run(
                "/bin/sh",
                {"-c", "head -c " + std::to_string(ToolProcess::kOutputLimit) + " /dev/zero"}, 60.0,
                done);
        },
        60s);
    ASSERT_TRUE(whole);
    EXPECT_EQ(whole->ending, ToolResult::Ending::exited);
    EXPECT_EQ(whole->standardOutput.size(), ToolProcess::kOutputLimit);

    FakeToolFolder folder;
    folder.write("startbackup.out", std::string(ToolProcess::kOutputLimit + 1, 'x'));
    ProcessTimeMachineTools tools(kFakeTool, systemClock, std::nullopt);
    // 16 MB through a pipe takes its time under the sanitizers on a busy machine.
    EXPECT_EQ(
        answerOf<StartBackupOutcome>([&](auto done) { tools.startBackup(done); }, 60s),
        StartBackupOutcome{StartBackupOutcome::LaunchFailed{"it wrote far more than an answer"}});
}

// An answer came, and it was "no output" (the tool could not run), or empty output.
const std::optional<std::optional<std::string>> kAnsweredNothing{std::in_place, std::nullopt};
const std::optional<std::optional<std::string>> kAnsweredEmpty{std::in_place, std::string()};

TEST(ProcessTimeMachineTools, AMissingToolIsNotStartedAgainUntilItAppearsOrTimePasses) {
    FakeToolFolder folder;
    VirtualScheduler clock;
    // A script whose interpreter is missing fails to start like a missing tool, and the
    // interpreter can then appear without the tool's own file changing.
    const auto tool = folder / "tmutil";
    folder.write("tmutil", "#!" + (folder / "interpreter").string() + "\n");
    std::filesystem::permissions(tool, std::filesystem::perms::owner_all);
    testing::RecordingLogSink sink;
    ProcessTimeMachineTools tools(tool.string(), clock, Logger(sink, LogArea::general));
    EXPECT_EQ(statusOf(tools), kAnsweredNothing);

    // The stand-in tool, run as the interpreter, logs every start in calls.log.
    std::filesystem::create_symlink(kFakeTool, folder / "interpreter");
    for (int poll = 0; poll < 5; ++poll) {
        EXPECT_EQ(statusOf(tools), kAnsweredNothing);
        clock.advance(2.0);
    }
    const auto outcome = startOf(tools);
    ASSERT_TRUE(outcome);
    EXPECT_EQ(*outcome,
              StartBackupOutcome{StartBackupOutcome::LaunchFailed{"No such file or directory"}})
        << "a start asked for meanwhile says why, from memory";
    EXPECT_EQ(folder.calls(), "") << "nothing was started while the tool was remembered missing";

    clock.advance(MissingToolMemory::kRecheckSeconds - 10.0 - 0.5);
    EXPECT_EQ(statusOf(tools), kAnsweredNothing);
    EXPECT_EQ(folder.calls(), "");
    clock.advance(0.5);
    const auto answer = statusOf(tools);
    ASSERT_TRUE(answer);
    EXPECT_TRUE(answer->has_value()) << "tried again after the wait, and it runs now";
    EXPECT_NE(folder.calls(), "");
    // Said once when it went missing and once when it ran again, not at every poll.
    EXPECT_EQ(sink.messages(),
              (std::vector<std::string>{
                  tool.string() +
                      " could not be started (No such file or directory); trying it again in 10 "
                      "minutes, or once it changes",
                  tool.string() + " starts again"}));

    // A tool that appears where none was is used at once: its file changed.
    const auto later = folder / "later";
    ProcessTimeMachineTools installed(later.string(), clock, std::nullopt);
    EXPECT_EQ(statusOf(installed), kAnsweredNothing);
    std::filesystem::create_symlink(kFakeTool, later);
    EXPECT_EQ(statusOf(installed), kAnsweredEmpty);
}

}  // namespace
}  // namespace kestrow
