#include "support/atomic_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <string>

#include "support/temp_folder.h"

namespace kestrow {
namespace {

namespace fs = std::filesystem;
using testing::TempFolder;

void age(const fs::path& file, std::chrono::seconds by) {
    fs::last_write_time(file, fs::last_write_time(file) - by);
}

TEST(AtomicFile, ReadsOnlyRegularFilesWithoutEverWaitingAndRefusesOversizedOnes) {
    TempFolder folder;
    folder.write("plain", "contents");
    EXPECT_EQ(readFile(folder / "plain"), "contents");
    // /proc reports a size of zero and still reads whole.
    const auto status = readFile("/proc/self/status");
    ASSERT_TRUE(status);
    EXPECT_NE(status->find("Name:"), std::string::npos);

    // A FIFO with no writer would block an ordinary open for ever; a device never ends.
    ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
    const auto started = std::chrono::steady_clock::now();
    std::string error;
    EXPECT_FALSE(readFile(folder / "fifo", &error));
    EXPECT_EQ(error, (folder / "fifo").string() + ": not a regular file");
    EXPECT_FALSE(readFile("/dev/zero", &error));
    EXPECT_EQ(error, "/dev/zero: not a regular file");
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(2));
    EXPECT_FALSE(readFile(folder.path(), &error));
    EXPECT_NE(error.find("Is a directory"), std::string::npos);
    EXPECT_FALSE(readFile(folder / "missing", &error));
    EXPECT_NE(error.find("No such file"), std::string::npos);

    // A symbolic link to a regular file is followed; one to a FIFO is refused like the FIFO.
    fs::create_symlink(folder / "plain", folder / "link");
    EXPECT_EQ(readFile(folder / "link"), "contents");
    fs::create_symlink(folder / "fifo", folder / "fifo-link");
    EXPECT_FALSE(readFile(folder / "fifo-link"));

    // The limit is checked while reading, so it holds for files that grow or lie about size.
    folder.write("big", std::string(200'000, 'x'));
    EXPECT_EQ(readFile(folder / "big", nullptr, 200'000)->size(), 200'000u);
    EXPECT_FALSE(readFile(folder / "big", &error, 199'999));
    EXPECT_NE(error.find("File too large"), std::string::npos);
}

TEST(AtomicFile, AWriteClearsOnlyItsOwnOldTemporaryFiles) {
    TempFolder folder;
    const fs::path target = folder / "store.plist";
    const auto make = [&](const std::string& name, std::chrono::seconds old) {
        folder.write(name, "left over");
        age(folder / name, old);
    };
    using std::chrono::hours;
    make(".store.plist.Ab3xZ9", hours(2));  // a killed write of this file, long ago: cleared
    make(".store.plist.Qq1111", std::chrono::seconds(30));  // another write under way: kept
    make(".store.plist.Ab3xZ", hours(2));                   // not a name mkstemp makes
    make(".store.plist.Ab3xZ99", hours(2));                 // nor this
    make(".store.plist.Ab-xZ9", hours(2));                  // nor this
    make(".other.plist.Ab3xZ9", hours(2));                  // another file's
    make("store.plist.Ab3xZ9", hours(2));                   // not hidden, so not ours
    make("keep.txt", hours(2));
    fs::create_directory(folder / ".store.plist.Dir123");  // a folder is never ours
    fs::create_symlink(folder / "keep.txt", folder / ".store.plist.Lnk123");
    age(folder / "keep.txt", hours(2));

    ASSERT_TRUE(writeFileAtomically(target, "new"));
    EXPECT_EQ(readFile(target), "new");
    EXPECT_FALSE(fs::exists(folder / ".store.plist.Ab3xZ9"));
    for (const char* kept : {".store.plist.Qq1111", ".store.plist.Ab3xZ", ".store.plist.Ab3xZ99",
                             ".store.plist.Ab-xZ9", ".other.plist.Ab3xZ9", "store.plist.Ab3xZ9",
                             "keep.txt", ".store.plist.Dir123", ".store.plist.Lnk123"}) {
        EXPECT_TRUE(fs::exists(fs::symlink_status(folder / kept))) << kept;
    }
    EXPECT_EQ(readFile(folder / "keep.txt"), "left over");
}

}  // namespace
}  // namespace kestrow
