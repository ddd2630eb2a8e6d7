#include "platform/linux/freedesktop_trash.h"

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "platform/linux/trash_info_text.h"
#include "support/atomic_file.h"
#include "support/temp_folder.h"

namespace kestrow {
namespace {

namespace fs = std::filesystem;

struct stat statOf(const fs::path& path) {
    struct stat info {};
    ::lstat(path.c_str(), &info);
    return info;
}

void write(const fs::path& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

bool isThere(const fs::path& path) {
    return fs::exists(fs::symlink_status(path));
}

TrashItemIdentity folderIdentity(const fs::path& path) {
    const struct stat info = statOf(path);
    return TrashItemIdentity{TrashItemIdentity::Kind::directory, info.st_dev, info.st_ino,
                             std::nullopt, std::nullopt};
}

std::vector<std::string> namesIn(const fs::path& folder) {
    std::vector<std::string> names;
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator(folder, ec)) {
        names.push_back(entry.path().filename().string());
    }
    return names;
}

// The entry as it must read for `path` moved at some second between `before` and now.
void expectEntryText(const fs::path& info, const std::string& path, std::time_t before) {
    const std::string text = readFile(info).value_or("");
    const std::time_t after = std::time(nullptr);
    bool matched = false;
    for (std::time_t when = before; when <= after; ++when) {
        matched = matched || text == TrashInfoText::text(path, when);
    }
    EXPECT_TRUE(matched) << text;
}

// A file system of its own mounted on a folder of the test; needs root.
class Mounted {
public:
    Mounted(const fs::path& at, const std::string& options = "size=4m") : at_(at) {
        fs::create_directories(at_);
        mounted_ = ::mount("tmpfs", at_.c_str(), "tmpfs", 0, options.c_str()) == 0;
    }
    ~Mounted() {
        if (mounted_) ::umount2(at_.c_str(), MNT_DETACH);
    }
    Mounted(const Mounted&) = delete;
    Mounted& operator=(const Mounted&) = delete;
    bool mounted() const { return mounted_; }

private:
    fs::path at_;
    bool mounted_ = false;
};

class FreedesktopTrashTest : public ::testing::Test {
protected:
    void SetUp() override {
        fs::create_directories(home_);
        fs::create_directories(home_ / "cache");
    }
    fs::path trashFolder() const { return data_ / "Trash"; }

    testing::TempFolder temp_;
    fs::path home_ = temp_ / "home";
    fs::path data_ = temp_ / "data";
    FreedesktopTrash trash_{data_};
};

TEST_F(FreedesktopTrashTest, AnOddNameMovesWithAnExactEntryAndCanBePutBackOnlyToAFreePlace) {
    const fs::path item = home_ / "cache" / "a%b\nc d";
    fs::create_directories(item / "inner");
    write(item / "inner" / "x", "content");
    const std::time_t before = std::time(nullptr);
    const TrashMove move = trash_.moveToTrash({home_, item, folderIdentity(item)});
    ASSERT_TRUE(move.ok()) << move.failure;
    EXPECT_FALSE(isThere(item));
    const fs::path real = fs::canonical(home_ / "cache") / "a%b\nc d";
    EXPECT_EQ(move.trashed->original, real);
    EXPECT_EQ(move.trashed->inTrash, fs::canonical(trashFolder()) / "files" / "a%b\nc d");
    EXPECT_EQ(readFile(move.trashed->inTrash / "inner" / "x"), "content");
    EXPECT_EQ(move.trashed->info.filename(), "a%b\nc d.trashinfo");
    expectEntryText(move.trashed->info, real.string(), before);
    EXPECT_NE(readFile(move.trashed->info)->find("/a%25b%0Ac%20d\n"), std::string::npos);
    EXPECT_EQ(statOf(trashFolder()).st_mode & 0777, 0700u);

    // A second item of the same name gets its own entry beside the first.
    fs::create_directories(item);
    const TrashMove again = trash_.moveToTrash({home_, item, folderIdentity(item)});
    ASSERT_TRUE(again.ok()) << again.failure;
    EXPECT_NE(again.trashed->inTrash, move.trashed->inTrash);
    EXPECT_EQ(namesIn(trashFolder() / "info").size(), 2u);

    // The place is taken by the second one's replacement: putting back refuses and changes nothing.
    fs::create_directories(item);
    const auto taken = trash_.putBack(*move.trashed);
    ASSERT_TRUE(taken);
    EXPECT_NE(taken->find("taken"), std::string::npos);
    EXPECT_TRUE(isThere(move.trashed->inTrash));
    EXPECT_TRUE(isThere(move.trashed->info));
    fs::remove(item);
    EXPECT_EQ(trash_.putBack(*move.trashed), std::nullopt);
    EXPECT_EQ(readFile(item / "inner" / "x"), "content");
    EXPECT_FALSE(isThere(move.trashed->info));
}

TEST_F(FreedesktopTrashTest, OnlyAPlainPathBelowTheAnchorThroughRealFoldersIsMoved) {
    fs::create_directories(temp_ / "elsewhere" / "cache" / "victim");
    const fs::path victim = temp_ / "elsewhere" / "cache" / "victim";
    const TrashItemIdentity identity = folderIdentity(victim);
    for (const fs::path& item :
         {home_ / ".." / "elsewhere" / "cache" / "victim", home_ / "." / "cache" / "victim",
          fs::path(home_.string() + "/cache//victim"), temp_ / "elsewhere" / "cache" / "victim",
          home_, fs::path(home_.string() + "x/cache")}) {
        const TrashMove move = trash_.moveToTrash({home_, item, identity});
        EXPECT_FALSE(move.ok()) << item;
        EXPECT_FALSE(move.failure.empty());
    }
    // A folder on the way that is a link, even to the very folder that was checked.
    fs::remove(home_ / "cache");
    fs::create_directory_symlink(temp_ / "elsewhere" / "cache", home_ / "cache");
    const TrashMove linked = trash_.moveToTrash({home_, home_ / "cache" / "victim", identity});
    EXPECT_FALSE(linked.ok());
    EXPECT_NE(linked.failure.find("symbolic link"), std::string::npos) << linked.failure;
    EXPECT_TRUE(isThere(victim));
    EXPECT_TRUE(namesIn(trashFolder() / "info").empty());
}

TEST_F(FreedesktopTrashTest, WhatWasCheckedIsWhatMovesWhenThingsAreSwappedUnderneath) {
    const fs::path item = home_ / "cache" / "target";
    fs::create_directories(item);
    const TrashItemIdentity checked = folderIdentity(item);

    // The item itself replaced before the move: refused, the stranger stays.
    fs::rename(item, home_ / "target-old");
    fs::create_directories(item);
    TrashMove move = trash_.moveToTrash({home_, item, checked});
    EXPECT_FALSE(move.ok());
    EXPECT_NE(move.failure.find("replaced"), std::string::npos) << move.failure;
    EXPECT_TRUE(isThere(item));
    fs::remove(item);
    fs::rename(home_ / "target-old", item);

    // The parent swapped for a link to a decoy between the check and the rename: the pinned
    // folder's item moves, the decoy does not, and Restore points where the folder went.
    fs::create_directories(temp_ / "decoy" / "target");
    trash_.setBeforeRenameForTesting([&] {
        fs::rename(home_ / "cache", home_ / "cache-moved");
        fs::create_directory_symlink(temp_ / "decoy", home_ / "cache");
    });
    move = trash_.moveToTrash({home_, item, checked});
    ASSERT_TRUE(move.ok()) << move.failure;
    EXPECT_TRUE(isThere(temp_ / "decoy" / "target"));
    EXPECT_FALSE(isThere(home_ / "cache-moved" / "target"));
    EXPECT_EQ(statOf(move.trashed->inTrash).st_ino, checked.inode);
    const fs::path movedTo = fs::canonical(home_ / "cache-moved") / "target";
    EXPECT_EQ(move.trashed->original, movedTo);
    EXPECT_NE(readFile(move.trashed->info)->find("Path=" + movedTo.string() + "\n"),
              std::string::npos);

    // The item swapped for another folder right before the rename: the stranger goes back
    // where it was and no entry remains.
    fs::remove(home_ / "cache");
    fs::rename(home_ / "cache-moved", home_ / "cache");
    fs::create_directories(item);
    const TrashItemIdentity second = folderIdentity(item);
    trash_.setBeforeRenameForTesting([&] {
        fs::rename(item, home_ / "second");
        fs::create_directories(item);
        write(item / "stranger", "keep");
    });
    move = trash_.moveToTrash({home_, item, second});
    EXPECT_FALSE(move.ok());
    EXPECT_NE(move.failure.find("put back"), std::string::npos) << move.failure;
    EXPECT_EQ(readFile(item / "stranger"), "keep");
    EXPECT_EQ(namesIn(trashFolder() / "info").size(), 1u);
    EXPECT_EQ(namesIn(trashFolder() / "files").size(), 1u);
}

TEST_F(FreedesktopTrashTest, AFolderHoldingAMountPointAnywhereOrBeingOneNeverMoves) {
    const fs::path item = home_ / "cache" / "holder";
    fs::create_directories(item / "deep" / "er");
    const Mounted inner(item / "deep" / "er");
    if (!inner.mounted()) GTEST_SKIP() << "cannot mount a file system here (not root)";
    TrashMove move = trash_.moveToTrash({home_, item, folderIdentity(item)});
    EXPECT_FALSE(move.ok());
    EXPECT_NE(move.failure.find("mount point"), std::string::npos) << move.failure;
    EXPECT_TRUE(isThere(item / "deep" / "er"));

    const fs::path point = home_ / "cache" / "point";
    const Mounted itself(point);
    ASSERT_TRUE(itself.mounted());
    move = trash_.moveToTrash({home_, point, folderIdentity(point)});
    EXPECT_FALSE(move.ok());
    EXPECT_NE(move.failure.find("mount point"), std::string::npos) << move.failure;
    EXPECT_TRUE(namesIn(trashFolder() / "info").empty());
}

TEST_F(FreedesktopTrashTest, AnItemOnAnotherVolumeGoesToThatVolumesTrashWithARelativePath) {
    const fs::path top = temp_ / "volume";
    const Mounted volume(top);
    if (!volume.mounted()) GTEST_SKIP() << "cannot mount a file system here (not root)";
    fs::create_directories(top / "sub" / "a b");
    const std::time_t before = std::time(nullptr);
    TrashMove move =
        trash_.moveToTrash({top, top / "sub" / "a b", folderIdentity(top / "sub" / "a b")});
    ASSERT_TRUE(move.ok()) << move.failure;
    const fs::path own = top / (".Trash-" + std::to_string(::getuid()));
    EXPECT_EQ(move.trashed->inTrash, fs::canonical(own) / "files" / "a b");
    EXPECT_EQ(statOf(own).st_mode & 07777, 0700u);
    expectEntryText(own / "info" / "a b.trashinfo", "sub/a b", before);
    EXPECT_FALSE(isThere(trashFolder() / "files" / "a b"));

    // A real sticky .Trash shared by all users is used, through the user's own folder in it.
    fs::create_directories(top / ".Trash");
    fs::permissions(top / ".Trash", fs::perms::all | fs::perms::sticky_bit);
    fs::create_directories(top / "other");
    move = trash_.moveToTrash({top, top / "other", folderIdentity(top / "other")});
    ASSERT_TRUE(move.ok()) << move.failure;
    EXPECT_EQ(move.trashed->inTrash.parent_path().parent_path(),
              fs::canonical(top / ".Trash" / std::to_string(::getuid())));
    // Without the sticky bit it is not trusted.
    fs::permissions(top / ".Trash", fs::perms::all);
    fs::create_directories(top / "third");
    move = trash_.moveToTrash({top, top / "third", folderIdentity(top / "third")});
    ASSERT_TRUE(move.ok()) << move.failure;
    EXPECT_EQ(move.trashed->inTrash.parent_path().parent_path(), fs::canonical(own));
}

TEST_F(FreedesktopTrashTest, AFullDiskLeavesTheItemWhereItWasAndNoEntryBehind) {
    const Mounted volume(home_, "size=64k");
    if (!volume.mounted()) GTEST_SKIP() << "cannot mount a file system here (not root)";
    fs::create_directories(home_ / "cache" / "item");
    const fs::path own = home_ / (".Trash-" + std::to_string(::getuid()));
    fs::create_directories(own / "files");
    fs::create_directories(own / "info");
    // Fill the volume to the last block.
    {
        std::ofstream filler(home_ / "filler", std::ios::binary);
        const std::string block(4096, 'x');
        while (filler.write(block.data(), static_cast<std::streamsize>(block.size()))) {
            filler.flush();
        }
    }
    const TrashMove move = trash_.moveToTrash(
        {home_, home_ / "cache" / "item", folderIdentity(home_ / "cache" / "item")});
    EXPECT_FALSE(move.ok());
    EXPECT_NE(move.failure.find("could not be written"), std::string::npos) << move.failure;
    EXPECT_TRUE(isThere(home_ / "cache" / "item"));
    EXPECT_TRUE(namesIn(own / "info").empty());
    EXPECT_TRUE(namesIn(own / "files").empty());
}

}  // namespace
}  // namespace kestrow
