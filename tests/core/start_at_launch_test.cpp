#include "app/start_at_launch.h"

#include <gtest/gtest.h>

#include "support/temp_folder.h"

namespace kestrow {
namespace {

namespace fs = std::filesystem;

TEST(StartAtLaunch, OnlyAnAgentInAProgramFolderAndOutsideABuildTreeCountsAsInstalled) {
    testing::TempFolder folder;
    const fs::path home = folder / "home";
    fs::create_directories(home / ".local/bin");
    fs::create_directories(home / "bin");

    EXPECT_TRUE(StartAtLaunch::isInstalledAgent("/usr/bin/kestrow", home));
    EXPECT_TRUE(StartAtLaunch::isInstalledAgent("/usr/local/bin/kestrow", home));
    EXPECT_TRUE(StartAtLaunch::isInstalledAgent("/opt/kestrow/bin/kestrow", home));
    EXPECT_TRUE(StartAtLaunch::isInstalledAgent(home / ".local/bin/kestrow", home));
    EXPECT_TRUE(StartAtLaunch::isInstalledAgent(home / "bin/kestrow", home));

    // A folder whose name only begins like a program folder's is not one.
    EXPECT_FALSE(StartAtLaunch::isInstalledAgent("/usrlocal/bin/kestrow", home));
    EXPECT_FALSE(StartAtLaunch::isInstalledAgent("/optional/kestrow", home));
    EXPECT_FALSE(StartAtLaunch::isInstalledAgent(home / ".local/binaries/kestrow", home));
    EXPECT_FALSE(StartAtLaunch::isInstalledAgent(home / "src/kestrow/build/src/kestrow", home));
    EXPECT_FALSE(StartAtLaunch::isInstalledAgent("kestrow", home))
        << "a relative path says nothing";
    EXPECT_FALSE(StartAtLaunch::isInstalledAgent("", home));
    // "/usr/../tmp" is /tmp, whatever it starts with.
    EXPECT_FALSE(StartAtLaunch::isInstalledAgent("/usr/../tmp/kestrow", home));

    // A build tree inside a program folder is still a build tree.
    fs::create_directories(home / "bin/kestrow-build/src");
    folder.write("home/bin/kestrow-build/CMakeCache.txt", "");
    EXPECT_FALSE(StartAtLaunch::isInstalledAgent(home / "bin/kestrow-build/src/kestrow", home));

    // A link in ~/bin to a binary in a build folder is that binary.
    fs::create_directories(home / "work/build/src");
    folder.write("home/work/build/CMakeCache.txt", "");
    folder.write("home/work/build/src/kestrow", "");
    fs::create_symlink(home / "work/build/src/kestrow", home / "bin/kestrow-dev");
    EXPECT_FALSE(StartAtLaunch::isInstalledAgent(home / "bin/kestrow-dev", home));

    // A home reached through a link is the same home.
    fs::create_directory_symlink(home, folder / "home-link");
    EXPECT_TRUE(StartAtLaunch::isInstalledAgent(home / ".local/bin/kestrow", folder / "home-link"));
}

}  // namespace
}  // namespace kestrow
