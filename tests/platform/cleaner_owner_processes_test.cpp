// The developer cleaners' owners against real processes read from /proc: programs that rename
// themselves, interpreters running the owner's script or module, and interpreters running
// something else under the owner's name.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "cleaners/developer_cleaners.h"
#include "platform/linux/proc_running_processes.h"
#include "support/atomic_file.h"
#include "support/null_terminated.h"
#include "support/temp_folder.h"

extern char** environ;

namespace kestrow {
namespace {

namespace fs = std::filesystem;
using kestrow::testing::TempFolder;

// `program` started with `arguments` (its own name first) in a process group of its own, in
// `folder`, with `extra` added to this process's environment; the whole group is killed at the end.
class Started {
public:
    Started(const fs::path& program, std::vector<std::string> arguments, const fs::path& folder,
            const std::vector<std::string>& extra = {}) {
        std::vector<std::string> environment(extra);
        for (char** entry = environ; *entry != nullptr; ++entry) environment.emplace_back(*entry);
        std::vector<char*> argv = testing::nullTerminated(arguments);
        std::vector<char*> envp = testing::nullTerminated(environment);
        posix_spawnattr_t attributes;
        posix_spawn_file_actions_t actions;
        ::posix_spawnattr_init(&attributes);
        ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
        ::posix_spawnattr_setpgroup(&attributes, 0);
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawn_file_actions_addchdir_np(&actions, folder.c_str());
        ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        if (::posix_spawn(&pid_, program.c_str(), &actions, &attributes, argv.data(),
                          envp.data()) != 0)
            pid_ = 0;
        ::posix_spawn_file_actions_destroy(&actions);
        ::posix_spawnattr_destroy(&attributes);
    }
    ~Started() {
        if (pid_ <= 0) return;
        ::kill(-pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
    Started(const Started&) = delete;
    Started& operator=(const Started&) = delete;

    fs::path proc() const { return fs::path("/proc") / std::to_string(pid_); }

    // Waits (up to 30 s: npm starts slowly on a busy machine) until `ready` holds.
    bool await(const std::function<bool()>& ready) const {
        for (int i = 0; pid_ > 0 && i < 3000; ++i) {
            if (ready()) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }
    bool awaitName(const std::string& name) const {
        return await([&] { return readFile(proc() / "comm").value_or("") == name + "\n"; });
    }

    // This process alone, read the way the whole table is.
    ProcessListing listing(const TempFolder& scratch) const {
        const fs::path root = scratch / ("proc-" + std::to_string(pid_));
        fs::create_directories(root);
        fs::create_directory_symlink(proc(), root / std::to_string(pid_));
        return ProcRunningProcesses(root).current();
    }

private:
    pid_t pid_ = 0;
};

struct Owners {
    TempFolder home;
    CleanerOwner npm = owner("npm");
    CleanerOwner pip = owner("pip");
    CleanerOwner brew = owner("homebrew");

    CleanerOwner owner(const std::string& id) const {
        return DeveloperCleaners::make(id, UserLocations::resolve(home.homeEnvironment()))->owner();
    }
};

bool runs(const CleanerOwner& owner, const ProcessListing& listing) {
    return owner.isRunningNow([](const std::string&) { return false; },
                              [&listing] { return listing; });
}

void writeScript(const fs::path& path, const std::string& text) {
    fs::create_directories(path.parent_path());
    ASSERT_TRUE(writeFileAtomically(path, text));
    fs::permissions(path, fs::perms::owner_all);
}

TEST(CleanerOwnerProcessesTest, NpmRunKeepsTheNpmCacheUnderTheNameItTook) {
    const Owners owners;
    const TempFolder work;
    work.write("package.json",
               R"({"name": "t", "version": "1.0.0", "scripts": {"hold": "sleep 600"}})");
    const Started npm("/usr/bin/npm", {"npm", "run", "hold"}, work.path(),
                      {"HOME=" + work.path().string(), "npm_config_update_notifier=false",
                       "npm_config_cache=" + (work / "npm-cache").string()});
    // npm names itself after the command, over both its name and its arguments.
    ASSERT_TRUE(npm.awaitName("npm run hold"));
    const ProcessListing listing = npm.listing(work);
    ASSERT_TRUE(listing && listing->size() == 1);
    EXPECT_EQ(listing->front().arguments, std::vector<std::string>{"npm run hold"});
    EXPECT_TRUE(runs(owners.npm, listing));
    EXPECT_FALSE(runs(owners.pip, listing));
    EXPECT_TRUE(runs(owners.npm, ProcRunningProcesses().current()));
}

TEST(CleanerOwnerProcessesTest, OnlyPipItselfHoldsThePipCache) {
    const Owners owners;
    const TempFolder work;
    const std::string hold = "import time\nopen('started', 'w').close()\ntime.sleep(600)\n";
    const auto started = [&](const fs::path& folder) {
        return [folder] { return fs::exists(folder / "started"); };
    };

    // Another Python program, calling itself pip3 in its name and its first argument.
    fs::create_directories(work / "renamed");
    work.write("renamed/tool.py",
               "import ctypes\nctypes.CDLL(None).prctl(15, b'pip3', 0, 0, 0)\n" + hold);
    const Started renamed("/usr/bin/python3", {"/usr/bin/python3", "tool.py"}, work / "renamed");
    ASSERT_TRUE(renamed.awaitName("pip3"));
    const ProcessListing other = renamed.listing(work);
    ASSERT_TRUE(other && other->size() == 1);
    EXPECT_FALSE(runs(owners.pip, other));
    EXPECT_FALSE(runs(owners.npm, other));

    // pip as a module: `-m` looks in the current folder first, where a stand-in waits.
    work.write("module/pip/__init__.py", "");
    work.write("module/pip/__main__.py", hold);
    const Started module("/usr/bin/python3", {"python3", "-m", "pip", "list"}, work / "module");
    ASSERT_TRUE(module.await(started(work / "module")));
    EXPECT_TRUE(runs(owners.pip, module.listing(work)));

    // pip's entry script, whose first line names the interpreter.
    writeScript(work / "entry/bin/pip3", "#!/usr/bin/python3\n" + hold);
    const Started entry(work / "entry/bin/pip3", {"pip3", "install", "x"}, work / "entry");
    ASSERT_TRUE(entry.await(started(work / "entry")));
    const ProcessListing pipRuns = entry.listing(work);
    ASSERT_TRUE(pipRuns && pipRuns->size() == 1);
    EXPECT_EQ(pipRuns->front().path, fs::canonical("/usr/bin/python3").string());
    EXPECT_TRUE(runs(owners.pip, pipRuns));
    EXPECT_FALSE(runs(owners.npm, pipRuns));
}

TEST(CleanerOwnerProcessesTest, BrewIsAShellScriptAndACopiedProgramIsNotTheOneItsNamed) {
    const Owners owners;
    const TempFolder work;
    writeScript(work / "bin/brew", "#!/bin/bash\nwhile :; do sleep 1; done\n");
    const Started brew(work / "bin/brew", {"brew", "update"}, work.path());
    ASSERT_TRUE(brew.await([&] {
        return readFile(brew.proc() / "cmdline").value_or("").find("brew") != std::string::npos;
    }));
    const ProcessListing brewRuns = brew.listing(work);
    ASSERT_TRUE(brewRuns && brewRuns->size() == 1);
    EXPECT_TRUE(runs(owners.brew, brewRuns));
    EXPECT_FALSE(runs(owners.pip, brewRuns));

    // A copy of sleep that says it is node in its first argument is not.
    fs::copy_file("/bin/sleep", work / "worker");
    const Started worker(work / "worker", {"node", "600"}, work.path());
    ASSERT_TRUE(worker.await([&] { return readFile(worker.proc() / "comm") == "worker\n"; }));
    const ProcessListing workerRuns = worker.listing(work);
    ASSERT_TRUE(workerRuns && workerRuns->size() == 1);
    EXPECT_FALSE(runs(owners.npm, workerRuns));
    EXPECT_FALSE(runs(owners.pip, workerRuns));
    EXPECT_FALSE(runs(owners.brew, workerRuns));
}

}  // namespace
}  // namespace kestrow
