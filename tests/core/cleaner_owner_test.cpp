// Telling a cleaner's owner by what its processes run: the executable and the script or module an
// interpreter was given, never the name a process chose for itself.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "cleaners/cleaner_owner.h"
#include "cleaners/developer_cleaners.h"
#include "support/temp_folder.h"

namespace kestrow {
namespace {

using testing::TempFolder;
using Arguments = std::vector<std::string>;

RunningProcess running(std::string name, std::optional<std::string> path, Arguments arguments) {
    return RunningProcess{std::move(name), std::move(path), std::move(arguments)};
}

CleanerOwner developerOwner(const std::string& id) {
    const TempFolder home;
    return DeveloperCleaners::make(id, UserLocations::resolve(home.homeEnvironment()))->owner();
}

TEST(CleanerOwnerScriptTest, FindsTheScriptOrModuleBehindTheInterpretersOptions) {
    using Script = InterpretedScript;
    EXPECT_EQ(Script::of({"python3", "/usr/bin/pip3", "install", "-m", "x"}), (Script{"pip3", ""}));
    EXPECT_EQ(Script::of({"python3", "-I", "-W", "ignore", "-X", "utf8", "tool.py", "-m", "pip"}),
              (Script{"tool.py", ""}));
    EXPECT_EQ(Script::of({"python3", "-E", "-m", "pip", "install"}), (Script{"", "pip"}));
    EXPECT_EQ(Script::of({"python3", "-mpip._internal"}), (Script{"", "pip._internal"}));
    EXPECT_EQ(Script::of({"python3", "/usr/lib/python3/dist-packages/pip/__main__.py"}),
              (Script{"", "pip"}));
    EXPECT_EQ(Script::of({"node", "--max-old-space-size=4096", "-r", "pip",
                          "/usr/lib/node_modules/npm/bin/npm-cli.js", "run", "build"}),
              (Script{"npm-cli.js", ""}));
    EXPECT_EQ(Script::of({"bash", "--", "-brew"}), (Script{"-brew", ""}));
    // Text given on the command line or read from standard input names no script, whatever
    // follows it.
    EXPECT_EQ(Script::of({"python3", "-c", "import pip", "pip"}), std::nullopt);
    EXPECT_EQ(Script::of({"node", "-e", "x", "npm"}), std::nullopt);
    EXPECT_EQ(Script::of({"python3", "-", "pip"}), std::nullopt);
    // A title written over the arguments, and arguments cut short.
    EXPECT_EQ(Script::of({"npm run build"}), std::nullopt);
    EXPECT_EQ(Script::of({"python3", "-m"}), std::nullopt);
    EXPECT_EQ(Script::of({"python3", "-W"}), std::nullopt);
    EXPECT_EQ(Script::of({"bash", "--"}), std::nullopt);
    EXPECT_EQ(Script::of({}), std::nullopt);
}

TEST(CleanerOwnerScriptTest, TheProgramIsTheExecutableThenTheFirstArgumentThenTheName) {
    EXPECT_EQ(programName(running("npm run build", "/usr/bin/node", {"npm run build"})), "node");
    EXPECT_EQ(programName(running("x", std::nullopt, {"/usr/bin/python3.11", "y.py"})),
              "python3.11");
    EXPECT_EQ(programName(running("kworker/0:1", std::nullopt, {})), "kworker/0:1");
    EXPECT_EQ(programName(running("x", std::nullopt, {"", "y"})), "x");
}

TEST(CleanerOwnerScriptTest, NamesMatchWithAVersionButNotAsAPrefix) {
    const CleanerOwnerScript pip{{"python"}, {"pip"}, {"pip"}};
    const auto python = [](Arguments arguments) {
        return running("python3", "/usr/bin/python3.11", std::move(arguments));
    };
    EXPECT_TRUE(pip.matches(python({"python3", "/usr/bin/pip"})));
    EXPECT_TRUE(pip.matches(python({"python3", "/usr/local/bin/PIP3.11", "list"})));
    EXPECT_TRUE(pip.matches(python({"python3", "/home/u/pip.py"})));
    EXPECT_TRUE(pip.matches(python({"python3", "-m", "pip"})));
    EXPECT_TRUE(pip.matches(python({"python3", "-m", "pip.__main__"})));
    EXPECT_FALSE(pip.matches(python({"python3", "/usr/bin/pipewire-helper.py"})));
    EXPECT_FALSE(pip.matches(python({"python3", "/usr/bin/pipx"})));
    EXPECT_FALSE(pip.matches(python({"python3", "-m", "pipx"})));
    EXPECT_FALSE(pip.matches(python({"python3", "-m", "http.server"})));
    EXPECT_FALSE(pip.matches(python({"python3"})));
    // The script has to run in one of the interpreters: a native program given "pip" is not pip.
    EXPECT_FALSE(pip.matches(running("pipewire", "/usr/bin/pipewire", {"pipewire"})));
    EXPECT_FALSE(pip.matches(running("python3", "/usr/bin/pythonic", {"python3", "pip"})));
    EXPECT_FALSE(pip.matches(running("x", "/opt/python-tools/run", {"run", "-m", "pip"})));
    // A process whose executable could not be read is judged by its first argument.
    EXPECT_TRUE(pip.matches(running("pip", std::nullopt, {"/usr/bin/python3", "/usr/bin/pip"})));
}

TEST(CleanerOwnerTest, DeveloperOwnersAreKnownByWhatTheyRunNotByTheNamesTheyTake) {
    const CleanerOwner npm = developerOwner("npm");
    const CleanerOwner pip = developerOwner("pip");
    const CleanerOwner brew = developerOwner("homebrew");

    // npm renames node after its command; the executable stays node.
    const RunningProcess npmRun = running("npm run build", "/usr/bin/node", {"npm run build"});
    EXPECT_TRUE(npm.matches(npmRun));
    EXPECT_TRUE(npm.matches(running("node", "/home/u/.nvm/versions/node/v20/bin/node",
                                    {"node", "/usr/lib/node_modules/npm/bin/npm-cli.js"})));
    EXPECT_FALSE(pip.matches(npmRun));
    // Something that only calls itself node is not node.
    EXPECT_FALSE(npm.matches(running("node", "/usr/bin/sleep", {"node", "60"})));

    // Only pip holds the pip cache; other Python programs and names that start alike do not.
    const RunningProcess pipInstall =
        running("pip3", "/usr/bin/python3.11", {"/usr/bin/python3", "/usr/bin/pip3", "install"});
    EXPECT_TRUE(pip.matches(pipInstall));
    EXPECT_TRUE(pip.matches(running("python3", "/usr/bin/python3.11", {"python3", "-m", "pip"})));
    EXPECT_TRUE(pip.matches(running("pypy3", "/opt/pypy/bin/pypy3.10", {"pypy3", "-m", "pip"})));
    EXPECT_FALSE(pip.matches(
        running("python3", "/usr/bin/python3.11", {"/usr/bin/python3", "/usr/bin/unattended"})));
    EXPECT_FALSE(pip.matches(running("pip", "/usr/bin/python3.11", {"pip", "/srv/app.py"})));
    EXPECT_FALSE(pip.matches(running("pipewire", "/usr/bin/pipewire", {"pipewire"})));
    EXPECT_FALSE(pip.matches(running("python3", "/usr/bin/python3.11", {"python3"})));
    EXPECT_FALSE(npm.matches(pipInstall));

    // brew is a shell script, and its work is done by a Ruby kept under its own folder.
    EXPECT_TRUE(brew.matches(
        running("brew", "/usr/bin/bash", {"/bin/bash", "/home/linuxbrew/.linuxbrew/bin/brew"})));
    EXPECT_TRUE(brew.matches(running(
        "ruby", "/opt/brew/Homebrew/Library/Homebrew/vendor/portable-ruby/bin/ruby", {"ruby"})));
    EXPECT_FALSE(brew.matches(running("brew", "/usr/bin/bash", {"bash", "/home/u/make.sh"})));

    // The table is read for every owner known by process, and an unreadable one holds them all.
    const auto none = [](const std::string&) { return false; };
    const auto table = [](ProcessListing listing) { return [listing] { return listing; }; };
    const std::vector<RunningProcess> busy{
        running("python3", "/usr/bin/python3.11", {"python3", "/srv/app.py"}), npmRun};
    EXPECT_TRUE(npm.isRunningNow(none, table(busy)));
    EXPECT_FALSE(pip.isRunningNow(none, table(busy)));
    EXPECT_TRUE(pip.isRunningNow(none, table(std::nullopt)));
    const CleanerOwner onlyScripts{{}, {}, {}, {}, {CleanerOwnerScript{{"sh"}, {"tool"}}}};
    EXPECT_TRUE(onlyScripts.isRunningNow(none, table(std::nullopt)));
    EXPECT_FALSE(onlyScripts.isRunningNow(none, table(busy)));
}

}  // namespace
}  // namespace kestrow
