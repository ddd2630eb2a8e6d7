#include "platform/linux/detached_program_launcher.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "support/temp_folder.h"
#include "wait_until.h"

namespace kestrow {
namespace {

std::string contents(const std::filesystem::path& file) {
    std::ifstream in(file);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

TEST(DetachedProgramLauncherTest, StartsTheProgramWithItsArgumentsOrSaysWhyNot) {
    testing::TempFolder folder;
    const auto out = folder / "out";
    DetachedProgramLauncher launcher;
    // Each argument arrives whole: spaces are not split and nothing is read by a shell.
    EXPECT_EQ(launcher.startDetached("/bin/sh", {"-c", "printf '%s|%s' \"$1\" \"$2\" > \"$0\"",
                                                 out.string(), "--backup", "two words"}),
              std::nullopt);
    EXPECT_TRUE(testing::waitUntil([&] { return contents(out) == "--backup|two words"; }))
        << contents(out);

    const auto error = launcher.startDetached((folder / "no-such-program").string(), {"--backup"});
    ASSERT_TRUE(error);
    EXPECT_FALSE(error->empty());
}

}  // namespace
}  // namespace kestrow
