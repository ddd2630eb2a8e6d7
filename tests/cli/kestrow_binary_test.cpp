// Runs the real `kestrow` executable, as scripts and users do.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "support/shell_command.h"
#include "support/temp_folder.h"

namespace kestrow {
namespace {

struct Result {
    int status;
    std::string output;
};

Result runKestrow(const testing::TempFolder& home, const std::string& args,
                  const std::string& env = "") {
    const char* binary = std::getenv("KESTROW_BINARY");
    if (binary == nullptr) return {-1, "KESTROW_BINARY is not set"};
    const std::string command = "env -i HOME='" + home.path().string() + "' XDG_CONFIG_HOME='" +
                                (home / ".config").string() + "' XDG_RUNTIME_DIR='" +
                                (home / "run").string() + "' " + env + " '" + binary + "' " + args +
                                " 2>&1";
    const auto shell = testing::runShell(command);
    return {shell.status, shell.out};
}

TEST(KestrowBinary, UnknownInputGetsUsageAndStatusTwo) {
    testing::TempFolder home;
    for (const char* args :
         {"frobnicate", "--frobnicate", "settings set", "settings set nightlyBackupStartHour x"}) {
        const Result r = runKestrow(home, args);
        EXPECT_EQ(r.status, 2) << args << ": " << r.output;
        EXPECT_NE(r.output.find("usage: kestrow"), std::string::npos) << args;
    }
    const Result help = runKestrow(home, "--help");
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.output.find("kestrow settings [--json]"), std::string::npos);
}

TEST(KestrowBinary, ThePreviewsFlagStartsNothingAndWritesNothing) {
    testing::TempFolder home;
    const Result r = runKestrow(home, "", "XCODE_RUNNING_FOR_PREVIEWS=1");
    EXPECT_EQ(r.status, 0) << r.output;
    EXPECT_TRUE(std::filesystem::is_empty(home.path()))
        << "no settings, no autostart entry, no socket";
}

}  // namespace
}  // namespace kestrow
