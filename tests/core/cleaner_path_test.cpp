#include "cleaners/cleaner_path.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "support/temp_folder.h"
#include "support/unprivileged_child.h"

namespace kestrow {
namespace {

namespace fs = std::filesystem;
using testing::TempFolder;

std::int64_t allocated(const fs::path& file) {
    struct stat info {};
    EXPECT_EQ(::lstat(file.c_str(), &info), 0) << file;
    return static_cast<std::int64_t>(info.st_blocks) * 512;
}

using kestrow::testing::unprivileged;

TEST(CleanerPath, ExactLeafIsSpelledExactlyBaseThenRelative) {
    const fs::path base = "/home/me/.cache";
    EXPECT_TRUE(CleanerPath::isExactLeaf("/home/me/.cache/thumbnails", base, {"thumbnails"}));
    EXPECT_TRUE(
        CleanerPath::isExactLeaf("/home/me/.cache/thumbnails", "/home/me/.cache/", {"thumbnails"}));
    EXPECT_TRUE(CleanerPath::isExactLeaf("/home/me/.cache/a b/Défault\nx/Cache", base,
                                         {"a b", "Défault\nx", "Cache"}));
    EXPECT_TRUE(CleanerPath::isExactLeaf("/tmp", "/", {"tmp"}));

    for (const char* trick :
         {"/home/me/.cache/./thumbnails", "/home/me/.cache//thumbnails",
          "/home/me//.cache/thumbnails", "/home/me/.cache/thumbnails/",
          "/home/me/.cache/thumbnails/.", "/home/me/.cache/thumbnails/extra", "/home/me/.cache",
          "/home/me/.cache/x/../thumbnails", "/home/me/.cache/Thumbnails",
          "home/me/.cache/thumbnails", "//home/me/.cache/thumbnails"}) {
        EXPECT_FALSE(CleanerPath::isExactLeaf(trick, base, {"thumbnails"})) << trick;
    }
    // The relative part must be single plain names, and there must be one.
    EXPECT_FALSE(CleanerPath::isExactLeaf("/home/me/.cache/a/b", base, {"a/b"}));
    EXPECT_FALSE(CleanerPath::isExactLeaf("/home/me", base, {".."}));
    EXPECT_FALSE(CleanerPath::isExactLeaf("/home/me/.cache/", base, {""}));
    EXPECT_FALSE(CleanerPath::isExactLeaf("/home/me/.cache", base, {}));
    // A base that only resolves to the right place is no anchor.
    EXPECT_FALSE(
        CleanerPath::isExactLeaf("/home/me/../me/.cache/t", "/home/me/../me/.cache", {"t"}));

    EXPECT_TRUE(CleanerPath::hasDotComponents("/a/./b"));
    EXPECT_TRUE(CleanerPath::hasDotComponents("/a/b/.."));
    EXPECT_TRUE(CleanerPath::hasDotComponents(".."));
    EXPECT_FALSE(CleanerPath::hasDotComponents("/a/.b/..c/b."));
}

TEST(CleanerPath, LinksPassTheSpellingButNotTheRealDirectoryCheck) {
    TempFolder temp;
    fs::create_directories(temp / "real/Cache");
    fs::create_directories(temp / "elsewhere");
    fs::create_directory_symlink(temp / "real", temp / "anchor");
    fs::create_directory_symlink(temp / "elsewhere", temp / "real/Linked");
    temp.write("real/File", "x");
    fs::create_symlink(temp / "gone", temp / "real/Dangling");

    // A link among the base's own components is the cleaner's anchor, spelled as it gave it.
    EXPECT_TRUE(CleanerPath::isExactLeaf(temp / "anchor/Cache", temp / "anchor", {"Cache"}));
    EXPECT_FALSE(CleanerPath::isExactLeaf(temp / "real/Cache", temp / "anchor", {"Cache"}));
    // A link as the leaf is spelled right, and only the real-directory check stops it.
    EXPECT_TRUE(CleanerPath::isExactLeaf(temp / "real/Linked", temp / "real", {"Linked"}));
    EXPECT_FALSE(CleanerPath::isRealDirectory(temp / "real/Linked"));
    EXPECT_TRUE(CleanerPath::isRealDirectory(temp / "real/Cache"));
    EXPECT_TRUE(CleanerPath::isRealDirectory(temp / "anchor/Cache"));
    for (const char* name : {"File", "Dangling", "Missing"}) {
        EXPECT_FALSE(CleanerPath::isRealDirectory(temp / "real" / name)) << name;
        EXPECT_EQ(CleanerPath::discoverLeaf(temp / "real", {name}), CleanerDiscovery{}) << name;
    }
    EXPECT_EQ(CleanerPath::discoverLeaf(temp / "real", {"Linked"}), CleanerDiscovery{});
    EXPECT_EQ(CleanerPath::discoverLeaf(temp / "real", {"Cache"}),
              (CleanerDiscovery{{temp / "real/Cache"}, {}, {temp / "real"}}));
    EXPECT_EQ(CleanerPath::discoverLeaf(temp / "real/Cache", {"..", "Cache"}), CleanerDiscovery{});

    fs::create_directories(temp / "real/ünï côde\nname");
    EXPECT_EQ(CleanerPath::discoverLeaf(temp / "real", {"ünï côde\nname"}),
              (CleanerDiscovery{{temp / "real/ünï côde\nname"}, {}, {temp / "real"}}));
}

TEST(CleanerPath, ErrorsMapToStatusAndAMissingFolderIsNoError) {
    const auto code = [](int value) { return std::error_code(value, std::generic_category()); };
    EXPECT_EQ(CleanerPath::status(code(ENOENT)), PathStatus::absent);
    EXPECT_EQ(CleanerPath::status(code(ENOTDIR)), PathStatus::absent);
    EXPECT_EQ(CleanerPath::status(code(EACCES)), PathStatus::notPermitted);
    EXPECT_EQ(CleanerPath::status(std::error_code(EPERM, std::system_category())),
              PathStatus::notPermitted);
    EXPECT_EQ(CleanerPath::status(code(EIO)), PathStatus::failed);

    EXPECT_EQ(CleanerPath::failedDiscovery("/x/Cache", code(ENOENT)), CleanerDiscovery{});
    EXPECT_EQ(
        CleanerPath::failedDiscovery("/x/Cache", code(EACCES)),
        (CleanerDiscovery{{}, {{PathStatus::notPermitted, "/x/Cache: Permission denied"}}, {}}));
    EXPECT_EQ(CleanerPath::failedDiscovery("/x/Cache", code(EIO)),
              (CleanerDiscovery{{}, {{PathStatus::failed, "/x/Cache: Input/output error"}}, {}}));

    TempFolder temp;
    fs::create_symlink(temp / "gone", temp / "dangling");
    EXPECT_EQ(CleanerPath::status(temp.path()), PathStatus::usable);
    EXPECT_EQ(CleanerPath::status(temp / "dangling"), PathStatus::usable);
    EXPECT_EQ(CleanerPath::status(temp / "missing/deeper"), PathStatus::absent);
}

TEST(CleanerPath, CountsAllocatedBlocksOfEachInodeOnceWithoutFollowingLinks) {
    TempFolder temp;
    const fs::path root = temp / "root";
    fs::create_directories(root / "sub");
    temp.write("root/data", std::string(64 * 1024, 'd'));
    fs::create_hard_link(root / "data", root / "sub/hard");
    {
        // 64 MB long, one 4 KB block written.
        const int fd = ::open((root / "sparse").c_str(), O_WRONLY | O_CREAT, 0644);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(::ftruncate(fd, 64 << 20), 0);
        ASSERT_EQ(::pwrite(fd, std::string(4096, 's').data(), 4096, 0), 4096);
        ::close(fd);
    }
    fs::path deep = root;
    for (int level = 0; level < 40; ++level) deep /= "d" + std::to_string(level);
    fs::create_directories(deep);
    temp.write((deep / "bottom").lexically_relative(temp.path()).string(), "bottom");
    temp.write("root/odd name ✓\nline/inner", std::string(10'000, 'o'));
    temp.write("outside/big", std::string(1 << 20, 'b'));
    fs::create_symlink(temp / "outside/big", root / "big-link");
    // Linked from outside too: moving the folder leaves the data on the disk.
    temp.write("root/shared", std::string(300'000, 'h'));
    fs::create_hard_link(root / "shared", temp / "outside/shared");
    fs::create_directory_symlink(temp / "outside", root / "outside-link");

    const std::int64_t expected = allocated(root / "data") + allocated(root / "sparse") +
                                  allocated(deep / "bottom") +
                                  allocated(root / "odd name ✓\nline/inner");
    const CleanerPath::Size size = CleanerPath::byteSizeCounting(root);
    EXPECT_EQ(size, (CleanerPath::Size{expected, 0}));
    EXPECT_LT(size.bytes, 1 << 20);  // neither the sparse length nor the linked big file

    // One of two links alone gives nothing back; both inside count once.
    EXPECT_EQ(CleanerPath::byteSizeCounting(root / "data"), CleanerPath::Size{});
    EXPECT_EQ(CleanerPath::byteSizeCounting(root / "sub"), CleanerPath::Size{});
    fs::remove(temp / "outside/shared");
    EXPECT_EQ(CleanerPath::byteSizeCounting(root).bytes, expected + allocated(root / "shared"));
    EXPECT_EQ(CleanerPath::byteSizeCounting(root / "big-link"), CleanerPath::Size{});
    EXPECT_EQ(CleanerPath::byteSizeCounting(root / "missing"), CleanerPath::Size{});

    // A tree deeper than the walk keeps open is measured down to there, the rest skipped.
    fs::path deeper = temp / "deeper";
    for (int level = 0; level < 260; ++level) deeper /= "x";
    fs::create_directories(deeper);
    temp.write("deeper/top", "top");
    temp.write((deeper / "bottom").lexically_relative(temp.path()).string(), "bottom");
    EXPECT_EQ(CleanerPath::byteSizeCounting(temp / "deeper"),
              (CleanerPath::Size{allocated(temp / "deeper/top"), 1}));
}

TEST(CleanerPath, UnreadableFoldersAreSkippedOrBlockDiscovery) {
    TempFolder temp;
    temp.write("root/readable", std::string(8192, 'r'));
    temp.write("root/locked/hidden", std::string(8192, 'h'));
    fs::create_directories(temp / "base/Cache");
    fs::create_directories(temp / "closed/Cache");
    fs::permissions(temp / "root/locked", fs::perms::none);
    fs::permissions(temp / "base/Cache", fs::perms::none);
    fs::permissions(temp / "closed", fs::perms::none);
    const std::int64_t readable = allocated(temp / "root/readable");

    const auto result = unprivileged(temp, [&] {
        const CleanerPath::Size size = CleanerPath::byteSizeCounting(temp / "root");
        const auto text = [](const CleanerDiscovery& found) {
            return found.error ? std::to_string(static_cast<int>(found.error->status)) + "|" +
                                     found.error->text
                               : "none";
        };
        return std::to_string(size.bytes) + "|" + std::to_string(size.skipped) + "\n" +
               text(CleanerPath::discoverLeaf(temp / "base", {"Cache"})) + "\n" +
               text(CleanerPath::discoverLeaf(temp / "closed", {"Cache"}));
    });
    for (const char* folder : {"root/locked", "base/Cache", "closed"}) {
        fs::permissions(temp / folder, fs::perms::owner_all);
    }
    if (!result) GTEST_SKIP() << "could not run a child as an unprivileged user (uid 65534)";
    const std::string notPermitted = std::to_string(static_cast<int>(PathStatus::notPermitted));
    EXPECT_EQ(*result, std::to_string(readable) + "|1\n" + notPermitted + "|" +
                           (temp / "base/Cache").string() + ": Permission denied\n" + notPermitted +
                           "|" + (temp / "closed/Cache").string() + ": Permission denied");
}

}  // namespace
}  // namespace kestrow
