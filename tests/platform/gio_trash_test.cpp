#include "platform/linux/gio_trash.h"

#include <stdlib.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "support/atomic_file.h"

namespace kestrow {
namespace {

namespace fs = std::filesystem;

ino_t inodeOf(const fs::path& path) {
    struct stat info {};
    return ::lstat(path.c_str(), &info) == 0 ? info.st_ino : 0;
}

std::string percentDecoded(const std::string& text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() &&
            std::isxdigit(static_cast<unsigned char>(text[i + 1])) != 0 &&
            std::isxdigit(static_cast<unsigned char>(text[i + 2])) != 0) {
            out += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            out += text[i];
        }
    }
    return out;
}

// One entry of a trash folder: files/<name> with info/<name>.trashinfo beside it.
struct TrashEntry {
    fs::path file;
    std::string rawPath;
    fs::path originalPath;  // decoded, and resolved against the volume when relative
    std::string deletionDate;
};

std::vector<TrashEntry> entriesOf(const fs::path& trash, const fs::path& topdir = "/") {
    std::vector<TrashEntry> entries;
    std::error_code ec;
    for (const auto& info : fs::directory_iterator(trash / "info", ec)) {
        const std::string text = readFile(info.path()).value_or("");
        std::map<std::string, std::string> keys;
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            const auto equals = line.find('=');
            if (equals != std::string::npos) keys[line.substr(0, equals)] = line.substr(equals + 1);
        }
        TrashEntry entry;
        entry.file = trash / "files" / info.path().stem();
        entry.rawPath = keys["Path"];
        entry.originalPath = topdir / percentDecoded(entry.rawPath);
        entry.deletionDate = keys["DeletionDate"];
        EXPECT_EQ(text.rfind("[Trash Info]\n", 0), 0u) << text;
        entries.push_back(entry);
    }
    return entries;
}

std::optional<TrashEntry> entryFor(const fs::path& trash, const fs::path& original,
                                   const fs::path& topdir = "/") {
    for (const TrashEntry& entry : entriesOf(trash, topdir)) {
        if (entry.originalPath == original) return entry;
    }
    return std::nullopt;
}

bool isThere(const fs::path& path) {
    return fs::exists(fs::symlink_status(path));
}

void write(const fs::path& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

// Items live in a folder of the test's home, on the home's file system; the home trash is the
// one the test main named in XDG_DATA_HOME before GLib first looked.
class GioTrashTest : public ::testing::Test {
protected:
    void SetUp() override {
        fs::remove_all(homeTrash());
        std::string pattern = (fs::path(::getenv("HOME")) / "items.XXXXXX").string();
        ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
        items_ = pattern;
    }
    void TearDown() override { fs::remove_all(items_); }

    static fs::path dataHome() { return ::getenv("XDG_DATA_HOME"); }
    static fs::path homeTrash() { return dataHome() / "Trash"; }

    fs::path items_;
    GioTrash trash_;
};

TEST_F(GioTrashTest, OddNamesAreMovedIntoTheHomeTrashAndCanBePutBack) {
    const fs::path file = items_ / "a b%ü\n.txt";
    write(file, "file content");
    const fs::path folder = items_ / "folder %41 ü\nend";
    fs::create_directories(folder / "inner");
    write(folder / "inner" / "x.txt", "inner content");

    for (const fs::path& item : {file, folder}) {
        const ino_t inode = inodeOf(item);
        ASSERT_EQ(trash_.moveByPath(item), std::nullopt) << item;
        EXPECT_FALSE(isThere(item)) << item;

        const auto entry = entryFor(homeTrash(), item);
        ASSERT_TRUE(entry) << item;
        // Renamed, never copied.
        EXPECT_EQ(inodeOf(entry->file), inode) << entry->file;
        // The recorded path is absolute and escaped: no raw space, newline, "ü" or lone "%".
        EXPECT_EQ(entry->rawPath.front(), '/');
        EXPECT_EQ(entry->rawPath.find_first_of(" \n"), std::string::npos) << entry->rawPath;
        EXPECT_EQ(entry->rawPath.find("ü"), std::string::npos) << entry->rawPath;
        EXPECT_NE(entry->rawPath.find("%25"), std::string::npos) << entry->rawPath;
        EXPECT_TRUE(
            std::regex_match(entry->deletionDate, std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d)")))
            << entry->deletionDate;

        // What a file manager does to put it back.
        fs::rename(entry->file, entry->originalPath);
    }
    EXPECT_EQ(readFile(file), "file content");
    EXPECT_EQ(readFile(folder / "inner" / "x.txt"), "inner content");
}

TEST_F(GioTrashTest, LinksAreTrashedThemselvesAndTheirTargetsStay) {
    const fs::path target = items_ / "target";
    fs::create_directories(target);
    write(target / "kept.txt", "kept");
    fs::create_directory_symlink(target, items_ / "link");
    fs::create_directory_symlink(target, items_ / "slashed");
    fs::create_symlink(items_ / "nowhere", items_ / "dangling");

    // A trailing slash would make the system follow the link; here it still names the link.
    for (const fs::path& link :
         {items_ / "link", fs::path((items_ / "slashed").string() + "/"), items_ / "dangling"}) {
        ASSERT_EQ(trash_.moveByPath(link), std::nullopt) << link;
        const fs::path original = link.has_filename() ? link : link.parent_path();
        EXPECT_FALSE(isThere(original)) << link;
        const auto entry = entryFor(homeTrash(), original);
        ASSERT_TRUE(entry) << link;
        EXPECT_TRUE(fs::is_symlink(entry->file)) << link;
    }
    EXPECT_EQ(readFile(target / "kept.txt"), "kept");
    EXPECT_EQ(entriesOf(homeTrash()).size(), 3u);
}

TEST_F(GioTrashTest, AMissingItemFailsOnOneReadableLineAndLeavesNoEntry) {
    const auto reason = trash_.moveByPath(items_ / "gone\nmissing.txt");
    ASSERT_TRUE(reason);
    EXPECT_NE(reason->find("gone"), std::string::npos) << *reason;
    EXPECT_NE(reason->find("No such file"), std::string::npos) << *reason;
    EXPECT_EQ(reason->find('\n'), std::string::npos) << *reason;
    EXPECT_TRUE(entriesOf(homeTrash()).empty());
    EXPECT_FALSE(isThere(homeTrash() / "files" / "gone\nmissing.txt"));

    EXPECT_TRUE(trash_.moveByPath(""));
}

TEST_F(GioTrashTest, TheSameNameTwiceMakesTwoEntries) {
    const fs::path item = items_ / "twice.txt";
    for (const std::string content : {"first", "second"}) {
        write(item, content);
        ASSERT_EQ(trash_.moveByPath(item), std::nullopt);
    }
    const auto entries = entriesOf(homeTrash());
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_NE(entries[0].file, entries[1].file);
    std::vector<std::string> contents;
    for (const TrashEntry& entry : entries) {
        EXPECT_EQ(entry.originalPath, item);
        contents.push_back(readFile(entry.file).value_or("<missing>"));
    }
    std::sort(contents.begin(), contents.end());
    EXPECT_EQ(contents, (std::vector<std::string>{"first", "second"}));
}

// GLib reads XDG_DATA_HOME once: a trash that is gone is made again where the variable first
// pointed, and a later change of the variable is not seen.
TEST_F(GioTrashTest, TheHomeTrashIsRemadeWhereXdgDataHomeFirstPointed) {
    const fs::path firstDataHome = dataHome();
    const fs::path early = items_ / "early.txt";
    write(early, "early");
    ASSERT_EQ(trash_.moveByPath(early), std::nullopt);

    fs::remove_all(firstDataHome);
    const fs::path elsewhere = items_ / "elsewhere";
    ::setenv("XDG_DATA_HOME", elsewhere.c_str(), 1);
    const fs::path late = items_ / "late.txt";
    write(late, "late");
    const auto reason = trash_.moveByPath(late);
    ::setenv("XDG_DATA_HOME", firstDataHome.c_str(), 1);
    ASSERT_EQ(reason, std::nullopt);

    EXPECT_TRUE(entryFor(homeTrash(), late));
    EXPECT_FALSE(isThere(elsewhere));
    EXPECT_FALSE(isThere(fs::current_path() / "files" / "late.txt"));
}

// A RAM file system mounted on a folder of the test, a volume of its own. GLib refuses tmpfs as
// one of the system's own; ramfs it takes.
class MountedVolume {
public:
    explicit MountedVolume(const fs::path& at) : at_(at) {
        fs::create_directories(at_);
        mounted_ = ::mount("ramfs", at_.c_str(), "ramfs", 0, nullptr) == 0;
    }
    ~MountedVolume() {
        if (mounted_) ::umount2(at_.c_str(), MNT_DETACH);
    }
    MountedVolume(const MountedVolume&) = delete;
    MountedVolume& operator=(const MountedVolume&) = delete;
    bool mounted() const { return mounted_; }

private:
    fs::path at_;
    bool mounted_ = false;
};

TEST_F(GioTrashTest, AnItemOnAnotherVolumeGoesToThatVolumesTrashAndIsNeverCopied) {
    const fs::path topdir = items_ / "volume";
    const MountedVolume volume(topdir);
    if (!volume.mounted()) GTEST_SKIP() << "cannot mount a file system here (not root)";
    const fs::path volumeTrash = topdir / (".Trash-" + std::to_string(::getuid()));

    fs::create_directories(topdir / "sub");
    const fs::path item = topdir / "sub" / "a b.txt";
    write(item, "on the volume");
    const ino_t inode = inodeOf(item);
    ASSERT_EQ(trash_.moveByPath(item), std::nullopt);
    EXPECT_FALSE(isThere(item));
    const auto entry = entryFor(volumeTrash, item, topdir);
    ASSERT_TRUE(entry);
    EXPECT_EQ(inodeOf(entry->file), inode);
    EXPECT_EQ(readFile(entry->file), "on the volume");
    EXPECT_TRUE(entriesOf(homeTrash()).empty());

    // With no trash possible on the volume the move fails whole: no copy into the home trash and
    // no stray entry.
    fs::remove_all(volumeTrash);
    write(volumeTrash, "in the way");
    const fs::path stuck = topdir / "stuck.txt";
    write(stuck, "stays");
    const ino_t stuckInode = inodeOf(stuck);
    const auto reason = trash_.moveByPath(stuck);
    ASSERT_TRUE(reason);
    EXPECT_FALSE(reason->empty());
    EXPECT_EQ(inodeOf(stuck), stuckInode);
    EXPECT_EQ(readFile(stuck), "stays");
    EXPECT_TRUE(entriesOf(homeTrash()).empty());
    EXPECT_FALSE(isThere(homeTrash() / "files" / "stuck.txt"));
}

}  // namespace
}  // namespace kestrow
