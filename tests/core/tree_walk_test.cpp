#include "insights/tree_walk.h"

#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <functional>
#include <optional>
#include <sstream>
#include <stop_token>

#include "support/bounded_child.h"
#include "support/shell_command.h"
#include "support/temp_folder.h"
#include "support/unprivileged_child.h"

namespace kestrow {
namespace {

namespace fs = std::filesystem;
using testing::TempFolder;
using Sizes = std::map<std::string, std::int64_t>;

// Every folder du lists for these roots (NUL-terminated lines, so any name survives).
Sizes duSizes(const std::vector<fs::path>& roots, const std::string& flags = "") {
    std::string command = "du -B1 -0 " + flags;
    for (const auto& root : roots) command += " '" + root.string() + "'";
    const std::string output = testing::runShell(command + " 2>/dev/null").out;
    Sizes sizes;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line, '\0');) {
        const auto tab = line.find('\t');
        sizes[line.substr(tab + 1)] = std::stoll(line.substr(0, tab));
    }
    return sizes;
}

std::string text(const TreeWalk::FolderSizes& walked) {
    std::string result = std::to_string(walked.skipped) + " skipped\n";
    for (const auto& [path, bytes] : walked.sizes)
        result += std::to_string(bytes) + " " + path + "\n";
    return result;
}

std::string text(const Sizes& sizes, int skipped) {
    return text({sizes, skipped, 0});
}

TreeWalk::Options threads(unsigned count) {
    TreeWalk::Options options;
    options.threads = count;
    return options;
}

void writeSparse(const fs::path& file) {
    const int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(::pwrite(fd, "end", 3, (1 << 30) - 3), 3);
    ::close(fd);
}

// Hard links within a folder, across folders and across subtrees met in either order; a sparse
// file; symbolic links to a big file, to folders and up to the root; names with spaces, non-ASCII
// letters, a newline and a leading dash.
void buildTree(const TempFolder& temp) {
    temp.write("tree/big.bin", std::string(3 << 20, 'b'));
    temp.write("tree/a/one", std::string(10000, '1'));
    temp.write("tree/a/deep/er/two", std::string(70000, '2'));
    temp.write("tree/z first/three", std::string(5000, '3'));
    temp.write("tree/naïve café/new\nline", std::string(9000, 'n'));
    temp.write("tree/-dash/.hidden/four", std::string(123, '4'));
    fs::create_directories(temp / "tree/empty");
    fs::create_hard_link(temp / "tree/a/one", temp / "tree/a/one again");
    fs::create_hard_link(temp / "tree/a/deep/er/two", temp / "tree/z first/two");
    fs::create_hard_link(temp / "tree/z first/three", temp / "tree/a/three");
    fs::create_hard_link(temp / "tree/z first/three", temp / "tree/-dash/.hidden/three");
    fs::create_hard_link(temp / "tree/big.bin", temp / "tree/a/deep/big link");
    writeSparse(temp / "tree/a/sparse.img");
    fs::create_symlink(temp / "tree/big.bin", temp / "tree/naïve café/to big");
    fs::create_symlink("../a", temp / "tree/z first/to a");
    fs::create_symlink("..", temp / "tree/a/deep/loop");
    fs::create_symlink("nowhere", temp / "tree/dangling");
}

int openDescriptors() {
    int count = 0;
    for ([[maybe_unused]] const auto& entry : fs::directory_iterator("/proc/self/fd")) ++count;
    return count;
}

TEST(TreeWalk, FolderSizesAreWhatDuSaysWhateverTheThreads) {
    TempFolder temp;
    buildTree(temp);
    const Sizes expected = duSizes({temp / "tree"});
    ASSERT_EQ(expected.size(), 9u);
    const int descriptors = openDescriptors();
    for (unsigned count : {1u, 2u, 4u}) {
        const auto walked = TreeWalk::folderSizes({temp / "tree"}, 0, threads(count));
        EXPECT_EQ(text(walked), text(expected, 0)) << count << " threads";
        EXPECT_EQ(walked.totalBytes, expected.at((temp / "tree").string()));
    }
    EXPECT_EQ(openDescriptors(), descriptors);

    // The sparse file counts what it holds on disk, not its length.
    const auto walked = TreeWalk::folderSizes({temp / "tree"}, 1 << 20, threads(2));
    EXPECT_LT(walked.sizes.at((temp / "tree/a").string()), 5 << 20);
    for (const auto& [path, bytes] : walked.sizes) EXPECT_GE(bytes, 1 << 20) << path;
    EXPECT_FALSE(walked.sizes.contains((temp / "tree/z first").string()));

    // Several roots share one count of each inode, the first root it is met in holding it; a
    // root spelled with a trailing slash keeps it, as du does.
    const std::vector<fs::path> roots = {temp / "tree/z first/", temp / "tree/a"};
    EXPECT_EQ(text(TreeWalk::folderSizes(roots, 0, threads(2))), text(duSizes(roots), 0));
}

TEST(TreeWalk, DeepTreesAndOddRootsAreWalkedWithoutRunningOutOfDescriptors) {
    TempFolder temp;
    fs::path deep = temp / "deep";
    for (int level = 0; level < 300; ++level) deep /= "d";
    fs::create_directories(deep);
    temp.write((deep / "bottom").lexically_relative(temp.path()).string(), std::string(9999, 'x'));
    const int descriptors = openDescriptors();
    const auto walked = TreeWalk::folderSizes({temp / "deep"}, 0, threads(1));
    EXPECT_EQ(text(walked), text(duSizes({temp / "deep"}), 0));
    EXPECT_EQ(openDescriptors(), descriptors);

    // A root that is a file adds its blocks; one that does not exist adds nothing and is not a
    // folder that could not be read.
    temp.write("file", std::string(5000, 'f'));
    const auto odd = TreeWalk::folderSizes({temp / "file", temp / "missing"}, 0);
    EXPECT_EQ(text(odd), "0 skipped\n");
    EXPECT_EQ(odd.totalBytes, duSizes({temp / "file"}, "-a").at((temp / "file").string()));
}

TEST(TreeWalk, SkippedFoldersAreNeitherEnteredNorCounted) {
    TempFolder temp;
    buildTree(temp);
    temp.write("tree/a/.Trash/junk", std::string(50000, 'j'));
    temp.write("tree/a/deep/App.app/payload", std::string(50000, 'p'));
    TreeWalk::Options options;
    options.skipFolder = [&](const fs::path& folder) {
        return folder.filename() == ".Trash" || folder == temp / "tree/a/deep/App.app";
    };
    const Sizes expected =
        duSizes({temp / "tree"},
                "--exclude=.Trash --exclude='" + (temp / "tree/a/deep/App.app").string() + "'");
    EXPECT_EQ(text(TreeWalk::folderSizes({temp / "tree"}, 0, options)), text(expected, 0));

    const auto files = TreeWalk::files({temp / "tree"}, 0, options);
    for (const auto& file : files.files) EXPECT_EQ(file.path.find("junk"), std::string::npos);
    for (const auto& file : files.files) EXPECT_EQ(file.path.find("payload"), std::string::npos);
}

TEST(TreeWalk, FilesAreRegularFilesOfTheMinimumSizeWithTheirIdentities) {
    TempFolder temp;
    buildTree(temp);
    temp.write("tree/exact", std::string(10000, 'e'));
    temp.write("tree/just under", std::string(9999, 'u'));
    const auto found = TreeWalk::files({temp / "tree"}, 10000, threads(2));
    std::vector<std::string> paths;
    for (const auto& file : found.files) {
        paths.push_back(file.path.substr(temp.path().string().size() + 1));
    }
    // Every name of a hard-linked file is listed; symbolic links and smaller files are not.
    EXPECT_EQ(paths,
              (std::vector<std::string>{"tree/a/deep/big link", "tree/a/deep/er/two", "tree/a/one",
                                        "tree/a/one again", "tree/a/sparse.img", "tree/big.bin",
                                        "tree/exact", "tree/z first/two"}));
    EXPECT_EQ(found.skipped, 0);

    std::map<std::string, TreeWalk::File> byPath;
    for (const auto& file : found.files) byPath[file.path] = file;
    const auto& one = byPath.at((temp / "tree/a/one").string());
    const auto& again = byPath.at((temp / "tree/a/one again").string());
    EXPECT_EQ(std::tie(one.device, one.inode), std::tie(again.device, again.inode));
    EXPECT_NE(one.inode, byPath.at((temp / "tree/exact").string()).inode);
    struct stat info {};
    ASSERT_EQ(::stat((temp / "tree/a/one").c_str(), &info), 0);
    EXPECT_EQ(one.device, info.st_dev);
    EXPECT_EQ(one.inode, info.st_ino);
    EXPECT_EQ(one.size, 10000);
    EXPECT_EQ(one.allocated, info.st_blocks * 512);
    EXPECT_EQ(std::chrono::system_clock::to_time_t(one.modified), info.st_mtim.tv_sec);
    const auto& sparse = byPath.at((temp / "tree/a/sparse.img").string());
    EXPECT_EQ(sparse.size, 1 << 30);
    EXPECT_LT(sparse.allocated, 1 << 20);

    EXPECT_EQ(TreeWalk::files({temp / "tree"}, 1 << 20, threads(1)).files.size(), 3u);
}

using kestrow::testing::unprivileged;

TEST(TreeWalk, UnreadableFoldersAreSkippedAndCountOnlyTheirOwnBlocks) {
    TempFolder temp;
    buildTree(temp);
    temp.write("tree/locked/inside/secret", std::string(40000, 's'));
    temp.write("tree/listable only/hidden", std::string(40000, 'h'));
    fs::permissions(temp / "tree/locked", fs::perms::none);
    // Names can be read but not looked up: nothing in it can be counted, yet it was read.
    fs::permissions(temp / "tree/listable only", fs::perms::owner_read | fs::perms::others_read);
    const auto result = unprivileged(temp, [&] {
        return text(TreeWalk::folderSizes({temp / "tree"}, 0, threads(2))) + "=\n" +
               text(duSizes({temp / "tree"}), 1) + "=\n" +
               std::to_string(TreeWalk::files({temp / "tree"}, 0).skipped);
    });
    fs::permissions(temp / "tree/locked", fs::perms::owner_all);
    fs::permissions(temp / "tree/listable only", fs::perms::owner_all);
    if (!result) GTEST_SKIP() << "could not run a child as an unprivileged user (uid 65534)";
    const auto split = result->find("=\n");
    const auto tail = result->rfind("=\n");
    EXPECT_EQ(result->substr(0, split), result->substr(split + 2, tail - split - 2));
    EXPECT_NE(result->find("locked\n"), std::string::npos);
    EXPECT_EQ(result->substr(tail + 2), "1");
}

TEST(TreeWalk, OtherFileSystemsAreNotEntered) {
    TempFolder temp;
    buildTree(temp);
    fs::create_directories(temp / "tree/a/mounted");
    if (::geteuid() != 0 ||
        ::mount("kestrow-test", (temp / "tree/a/mounted").c_str(), "ramfs", 0, nullptr) != 0) {
        GTEST_SKIP() << "cannot mount a ramfs here";
    }
    temp.write("tree/a/mounted/elsewhere", std::string(1 << 20, 'e'));
    const Sizes expected = duSizes({temp / "tree"}, "-x");
    const auto walked = TreeWalk::folderSizes({temp / "tree"}, 0, threads(2));
    const auto files = TreeWalk::files({temp / "tree"}, 0, threads(2));
    ::umount2((temp / "tree/a/mounted").c_str(), MNT_DETACH);

    // The mount point itself belongs to the other file system: not listed, not counted.
    EXPECT_EQ(text(walked), text(expected, 0));
    EXPECT_FALSE(walked.sizes.contains((temp / "tree/a/mounted").string()));
    for (const auto& file : files.files) EXPECT_EQ(file.path.find("elsewhere"), std::string::npos);
}

// With nothing to walk a worker must not wait for work that no other worker exists to hand out.
TEST(TreeWalk, NothingOrOnlyMissingRootsIsAnEmptyAnswerAtOnce) {
    TempFolder temp;
    const auto answer = testing::withinTime(std::chrono::seconds(20), [&] {
        std::string seen;
        for (const unsigned count : {1u, 2u, 4u}) {
            const auto none = TreeWalk::files({}, 0, threads(count));
            const auto missing =
                TreeWalk::files({temp / "nowhere", temp / "gone"}, 0, threads(count));
            const auto sizes = TreeWalk::folderSizes({temp / "nowhere"}, 0, threads(count));
            seen += std::to_string(
                none.files.size() + missing.files.size() + sizes.sizes.size() +
                static_cast<std::size_t>(none.skipped + missing.skipped + sizes.skipped));
        }
        return seen;
    });
    EXPECT_EQ(answer, "000") << "the walk hung, or found something in nothing";
}

// A stop asked for part-way ends the walk with part of the answer, every folder freed (the
// sanitizer build checks) and no descriptor left open.
TEST(TreeWalk, AStopEndsTheWalkPartWay) {
    TempFolder temp;
    for (int i = 0; i < 40; ++i) {
        for (int j = 0; j < 10; ++j)
            temp.write("tree/" + std::to_string(i) + "/" + std::to_string(j) + "/f", "x");
    }
    const std::size_t all = TreeWalk::files({temp / "tree"}, 0, threads(4)).files.size();
    ASSERT_EQ(all, 400u);

    const int descriptors = openDescriptors();
    for (const unsigned count : {1u, 4u}) {
        std::stop_source stop;
        std::atomic<int> folders{0};
        TreeWalk::Options options = threads(count);
        options.stop = stop.get_token();
        options.skipFolder = [&](const fs::path&) {
            if (++folders == 30) stop.request_stop();
            return false;
        };
        const auto partial = TreeWalk::files({temp / "tree"}, 0, options);
        EXPECT_LT(partial.files.size(), all) << count << " threads";
        EXPECT_LT(TreeWalk::folderSizes({temp / "tree"}, 0, options).sizes.size(), 5u)
            << "a walk asked to stop before it starts walks nothing";
    }
    EXPECT_EQ(openDescriptors(), descriptors);
}

// The Trash reached under another name is still the Trash: a folder is left out by what it is.
TEST(TreeWalk, FoldersAreLeftOutByWhatTheyAre) {
    TempFolder temp;
    temp.write("tree/keep/a", std::string(100, 'a'));
    temp.write("tree/Trash/files/b", std::string(100, 'b'));
    struct stat info {};
    ASSERT_EQ(::stat((temp / "tree/Trash").c_str(), &info), 0);
    TreeWalk::Options options = threads(2);
    options.skipObjects.emplace(info.st_dev, info.st_ino);
    const auto found = TreeWalk::files({temp / "tree"}, 0, options);
    ASSERT_EQ(found.files.size(), 1u);
    EXPECT_EQ(found.files[0].path, (temp / "tree/keep/a").string());
    EXPECT_EQ(found.files[0].root, 0u);
    EXPECT_EQ(found.files[0].links, 1u);

    // Which root holds a file, by position among the roots given.
    fs::create_hard_link(temp / "tree/keep/a", temp / "tree/Trash/a2");
    const auto both = TreeWalk::files({temp / "tree/Trash/files", temp / "tree/keep"}, 0);
    ASSERT_EQ(both.files.size(), 2u);
    EXPECT_EQ(both.files[0].path, (temp / "tree/Trash/files/b").string());
    EXPECT_EQ(both.files[0].root, 0u);
    EXPECT_EQ(both.files[0].links, 1u);
    EXPECT_EQ(both.files[1].root, 1u);
    EXPECT_EQ(both.files[1].links, 2u) << "its other name is outside both roots";
}

}  // namespace
}  // namespace kestrow
