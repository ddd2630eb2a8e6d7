// The duplicate finder on real files: what counts as a copy, what the gain is, and what moving
// copies to the Trash refuses to do.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "app/settings/standard_settings.h"
#include "duplicate_test_files.h"
#include "insights/duplicate_finder.h"
#include "insights/duplicate_roots.h"
#include "insights/duplicate_trash.h"
#include "insights/duplicates_model.h"
#include "insights/private_size.h"
#include "support/byte_count_format.h"
#include "support/recording_log_sink.h"
#include "support/sha256.h"
#include "support/temp_folder.h"
#include "support/virtual_scheduler.h"

namespace kestrow {
namespace {

using namespace duplicate_test;

DuplicateFinder finder(const Logger& log) {
    return DuplicateFinder(log, {2, {}, {}});
}

TEST(DuplicateFinder, FindsOnlyTrueCopiesOfAMegabyteOrMore) {
    TempFolder root;
    testing::RecordingLogSink sink;
    const std::string big = noise(5 * kMiB, 1);
    root.write("big.bin", big);
    fs::create_hard_link(root / "big.bin", root / "big-link.bin");
    fs::create_hard_link(root / "big.bin", root / "big-link-2.bin");
    // Equal in the first 64 KiB, different later (just past it, and in the very last byte).
    std::string prefixed = noise(2 * kMiB, 2);
    root.write("prefix/a.bin", prefixed);
    prefixed[65'536] ^= 1;
    root.write("prefix/b.bin", prefixed);
    prefixed[65'536] ^= 1;
    prefixed.back() ^= 1;
    root.write("prefix/c.bin", prefixed);
    root.write("edge/below-1.bin", noise(kMiB - 1, 3));
    root.write("edge/below-2.bin", noise(kMiB - 1, 3));
    const std::string exact = noise(kMiB, 4);
    root.write("edge/exact-1.bin", exact);
    root.write("edge/exact-2.bin", exact);
    root.write("odd/-dash  two spaces \xc3\xbc\n\tline.bin", exact);
    root.write("Thing.app/Contents/Resources/exact.bin", exact);
    root.write("Photos Library.photoslibrary/originals/exact.bin", exact);
    root.write("Old.Bundle/exact.bin", exact);
    fs::create_symlink(root / "edge/exact-1.bin", root / "edge/link-to-exact.bin");
    fs::create_symlink(root / "edge", root / "link-to-edge");

    const auto result = finder(Logger(sink, LogArea::general)).scan({root.path()});
    EXPECT_EQ(
        pathsOf(result.groups, root.path()),
        (std::vector<std::vector<std::string>>{{"edge/exact-1.bin", "edge/exact-2.bin",
                                                "odd/-dash  two spaces \xc3\xbc\n\tline.bin"}}))
        << "hard links are one file, a shared prefix is not a copy, 1 MiB less a byte is too "
           "small, links are not followed and packages are not entered";
    EXPECT_EQ(result.skipped, 0);
    EXPECT_TRUE(sink.lines().empty());

    root.write("docs/big copy.bin", big);
    root.write("docs/nested/big copy 2.bin", big);
    const auto again = finder(Logger(sink, LogArea::general)).scan({root.path(), root / "docs"});
    ASSERT_EQ(again.groups.size(), 2U);
    EXPECT_EQ(pathsOf(again.groups, root.path())[0],
              (std::vector<std::string>{"big-link-2.bin", "docs/big copy.bin",
                                        "docs/nested/big copy 2.bin"}))
        << "the biggest group first; one name per inode; a root inside another walked once";
    EXPECT_EQ(again.groups[1].size(), static_cast<std::int64_t>(kMiB));
}

TEST(DuplicateFinder, HashesInChunksAsSha256AndAnswersNothingForWhatItCannotRead) {
    TempFolder root;
    root.write("abc", "abc");
    EXPECT_EQ(DuplicateFinder::hash(root / "abc"),
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    root.write("ab", "ab");
    EXPECT_EQ(DuplicateFinder::hash(root / "abc", 2), DuplicateFinder::hash(root / "ab"));
    EXPECT_EQ(DuplicateFinder::hash(root / "ab-missing"), std::nullopt);
    EXPECT_EQ(DuplicateFinder::hash(root.path()), std::nullopt) << "a folder reads as an error";

    const std::string three = noise(3 * kMiB + 17, 9);
    root.write("three", three);
    Sha256 whole;
    whole.update(std::as_bytes(std::span(three.data(), three.size())));
    EXPECT_EQ(DuplicateFinder::hash(root / "three"), whole.finishHex());
    whole.update(std::as_bytes(std::span(three.data(), 65'536)));
    EXPECT_EQ(DuplicateFinder::hash(root / "three", 65'536), whole.finishHex());
}

TEST(DuplicateFinder, CountsAndLogsFoldersItCannotRead) {
    TempFolder root;
    root.write("open/a.bin", noise(kMiB, 5));
    root.write("closed/b.bin", noise(kMiB, 5));
    fs::permissions(root.path(), fs::perms::all);
    fs::permissions(root / "closed", fs::perms::none);
    // Root reads any folder: the scan runs as nobody in a child process then.
    const pid_t child = ::fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        if (::geteuid() == 0 && (::setgid(65534) != 0 || ::setuid(65534) != 0)) ::_exit(10);
        testing::RecordingLogSink sink;
        const auto scan = finder(Logger(sink, LogArea::general)).scanFilesCounting({root.path()});
        const bool logged = sink.messages() ==
                            std::vector<std::string>{"Duplicates: 1 unreadable folder(s) skipped"};
        ::_exit(scan.skipped == 1 && scan.files.size() == 1 && logged ? 0 : 1);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    fs::permissions(root / "closed", fs::perms::owner_all);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

DuplicateFile file(std::string path, std::optional<std::int64_t> privateSize, int age = 0) {
    return {std::move(path), 4'000'000, 1, 0, WallTime{} + std::chrono::hours(100 - age),
            privateSize,     "",        ""};
}

TEST(DuplicateGroup, GainKeepOrderAndTheSharedSpaceSentence) {
    const Wording exact = Wording::exact();
    DuplicateGroup group{{file("/h/Downloads/a", 4'000'000), file("/h/Desktop/b", 4'001'000),
                          file("/h/x/long/path/c", 3'000'000)}};
    EXPECT_EQ(reclaimable(group), 8'001'000) << "all private sizes less the smallest";
    EXPECT_EQ(gainText(group, std::nullopt, exact), "8 MB to gain");
    group.files[1].privateSize.reset();
    EXPECT_EQ(reclaimable(group), std::nullopt);
    EXPECT_EQ(gainText(group, true, exact), std::nullopt);

    const DuplicateGroup clones{{file("/h/a", 0), file("/h/b", 0)}};
    EXPECT_EQ(gainText(clones, std::nullopt, exact),
              "0 bytes to gain now: shared with a clone or a Time Machine snapshot");
    EXPECT_EQ(gainText(clones, false, exact), gainText(clones, std::nullopt, exact));
    EXPECT_EQ(gainText(clones, true, exact),
              "0 bytes to gain now: shared with a clone or a Time Machine snapshot. Space "
              "returns when Time Machine thins its snapshots.");
    // On Linux the shared blocks are the file system's, whichever program backs up.
    EXPECT_EQ(gainText(clones, true, Wording::linux("restic")),
              "0 bytes to gain now: shared with a clone or a file system snapshot. Space returns "
              "when those snapshots are removed.");

    const KeepPreference preference{{"/h/Documents", "/srv/archive/"}, "/h/Downloads"};
    const DuplicateGroup copies{{file("/h/Downloads/old", 1, 50), file("/h/Desktop/sub/x", 1, 2),
                                 file("/h/Desktop/new", 1, 1), file("/h/Desktop/newest", 1, 1),
                                 file("/srv/archive/y", 1, 0), file("/h/Documentsx/z", 1, 60)}};
    std::vector<std::string> order;
    for (const auto& f : keepOrder(copies, preference)) order.push_back(f.path);
    EXPECT_EQ(order,
              (std::vector<std::string>{"/srv/archive/y", "/h/Documentsx/z", "/h/Desktop/sub/x",
                                        "/h/Desktop/new", "/h/Desktop/newest", "/h/Downloads/old"}))
        << "filed first, then not downloaded, then oldest, then shortest path, then by path";
}

TEST(DuplicateRoots, ReadsTheDesktopsFolderNamesAndCaptionsThem) {
    TempFolder home;
    const UserLocations locations = UserLocations::resolve(home.homeEnvironment());
    auto roots = DuplicateRoots::resolve(locations, {"/srv/photos", ""});
    EXPECT_EQ(roots.all(), (std::vector<fs::path>{home / "Desktop", home / "Documents",
                                                  home / "Downloads", "/srv/photos"}));
    EXPECT_EQ(roots.caption(),
              "Desktop, Documents, Downloads, /srv/photos. Files of 1 MB or more; app and photo "
              "libraries are skipped.");

    home.write(".config/user-dirs.dirs",
               "# written by xdg-user-dirs-update\n"
               "XDG_DESKTOP_DIR=\"$HOME/\"\n"
               "XDG_DOCUMENTS_DIR=\"$HOME/Dokumente\"\r\n"
               "  XDG_DOWNLOAD_DIR=\"/data/Herunter\\\"geladen\"\n"
               "XDG_MUSIC_DIR=relative\n");
    roots = DuplicateRoots::resolve(locations, {});
    EXPECT_EQ(roots.all(), (std::vector<fs::path>{home / "Dokumente", "/data/Herunter\"geladen"}))
        << "a folder set to the home is turned off";
    EXPECT_EQ(roots.caption(),
              "Desktop, Documents, Downloads. Files of 1 MB or more; app and photo libraries are "
              "skipped.");
}

TEST(DuplicateTrash, NeverTakesTheLastCopyNorAFileThatChangedSinceTheScan) {
    CopiesOnDisk disk;
    ASSERT_EQ(disk.groups.size(), 3U);
    // Every copy of "a" selected: the one in Documents stays.
    std::set<std::string> selected{disk / "Documents/a", disk / "Downloads/a", disk / "Desktop/a"};
    // b2 grows by a byte after the scan; b3 becomes a link to b1.
    selected.insert({disk / "Desktop/b2", disk / "Desktop/b3"});
    std::ofstream(disk / "Desktop/b2", std::ios::app) << "x";
    fs::remove(disk / "Desktop/b3");
    fs::create_symlink(disk / "Desktop/b1", disk / "Desktop/b3");
    // c2 is gone by the time c1 would go: c1 is the last copy.
    selected.insert(disk / "Desktop/c1");
    fs::remove(disk / "Desktop/c2");

    const auto report = trashDuplicates(selected, disk.groups, disk.preference(), disk.trash);
    EXPECT_EQ(report.moved, (std::vector<std::string>{disk / "Desktop/a", disk / "Downloads/a"}));
    EXPECT_EQ(disk.trash.moved, report.moved);
    // Each move names the scan root it is checked from and what the scan saw.
    ASSERT_EQ(disk.trash.requests.size(), 2u);
    const DuplicateGroup& a = disk.groups[2];
    const DuplicateFile& desktopA = a.files[0];
    ASSERT_EQ(desktopA.path, disk / "Desktop/a");
    EXPECT_EQ(disk.trash.requests[0].anchor, fs::canonical(disk.root.path()));
    EXPECT_EQ(disk.trash.requests[0].item, disk / "Desktop/a");
    EXPECT_EQ(disk.trash.requests[0].expected,
              (TrashItemIdentity{TrashItemIdentity::Kind::regularFile, desktopA.device,
                                 desktopA.inode, desktopA.size, desktopA.modified}));
    EXPECT_EQ(report.movedBytes, *desktopA.privateSize + *a.files[2].privateSize);
    EXPECT_TRUE(fs::exists(disk / "Documents/a"));
    EXPECT_TRUE(fs::exists(disk / "Desktop/c1"));
    EXPECT_EQ(report.skipped, 3);
    EXPECT_EQ(report.statusLine(),
              "Moved 2 files to the Trash; 3 skipped (changed since the scan, or the last copy)");

    // The same mtime and size but another inode (a copy put back in place) is not the scanned
    // file either.
    DuplicateGroup b = disk.groups[1];
    fs::remove(disk / "Desktop/b3");
    fs::copy_file(disk / "Desktop/b1", disk / "Desktop/b3");
    fs::last_write_time(disk / "Desktop/b3", fs::last_write_time(disk / "Desktop/b1"));
    EXPECT_FALSE(unchangedSinceScan(b.files[2]));
    EXPECT_TRUE(unchangedSinceScan(b.files[0]));
}

TEST(DuplicatesModel, ScansProposesMovesAndKeepsTheExtraFolders) {
    CopiesOnDisk disk;
    VirtualScheduler scheduler;
    SettingsStore standard(disk.root / ".config/kestrow/standard.plist",
                           Logger(disk.sink, LogArea::general));
    DuplicatesModel model(disk.modelOn(standard, scheduler));
    model.addFolder(disk.root.path().string());
    EXPECT_EQ(StandardSettings(standard).duplicateFinderFolders(),
              std::vector<std::string>{disk.root.path().string()});
    // A copy already in the home's Trash is neither kept nor proposed.
    fs::create_directories(disk.root / ".local/share/Trash/files");
    fs::copy_file(disk / "Documents/a", disk.root / ".local/share/Trash/files/a");
    model.scan();
    EXPECT_TRUE(model.scanning.get());
    scheduler.runPending();
    EXPECT_FALSE(model.scanning.get());
    ASSERT_EQ(model.groups.get().size(), 3U);
    EXPECT_EQ(model.selected.get(),
              (std::set<std::string>{disk / "Desktop/a", disk / "Downloads/a", disk / "Desktop/b2",
                                     disk / "Desktop/b3", disk / "Desktop/c2"}));
    EXPECT_EQ(model.status.get(),
              "3 groups of duplicates \u00b7 " + formatByteCount(model.totalGain()) + " to gain");
    EXPECT_GE(model.totalGain(), static_cast<std::int64_t>(5 * kMiB));

    model.apply(model.groups.get()[1], {disk / "Desktop/b3", disk / "Desktop/c1"});
    EXPECT_FALSE(model.selected.get().contains(disk / "Desktop/b2"));
    EXPECT_FALSE(model.selected.get().contains(disk / "Desktop/c1")) << "not in that group";
    model.setSelected(disk / "Desktop/a", false);
    model.setSelected(disk / "Desktop/a", true);
    model.trashSelected();
    scheduler.runPending();
    EXPECT_EQ(model.status.get(), "Moved 4 files to the Trash");
    ASSERT_EQ(model.groups.get().size(), 1U) << "groups left with one file are done";
    EXPECT_EQ(model.groups.get()[0].files.size(), 2U);
    EXPECT_TRUE(model.selected.get().empty());

    model.removeFolder(disk.root.path().string());
    EXPECT_TRUE(StandardSettings(standard).duplicateFinderFolders().empty());
    fs::remove(disk / "Desktop/b1");
    model.scan();
    scheduler.runPending();
    EXPECT_EQ(model.status.get(), "No duplicates of 1 MB or more");
}

// A reflink clone shares every block with its original: trashing either frees nothing now.
TEST(PrivateSize, ClonesShareTheirBlocks) {
    if (::geteuid() != 0 || std::system("command -v mkfs.xfs >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "needs root and mkfs.xfs for a file system with reflinks";
    TempFolder folder;
    const std::string image = (folder / "xfs.img").string();
    const std::string mount = (folder / "mnt").string();
    fs::create_directories(mount);
    const std::string make = "truncate -s 320M '" + image + "' && mkfs.xfs -q -m reflink=1 '" +
                             image + "' && mount -o loop '" + image + "' '" + mount + "'";
    if (std::system(make.c_str()) != 0) GTEST_SKIP() << "no loop mount here";
    const fs::path original = fs::path(mount) / "original";
    std::ofstream(original, std::ios::binary) << noise(2 * kMiB, 7);
    ::sync();
    const bool cloned =
        std::system(
            ("cp --reflink=always '" + original.string() + "' '" + mount + "/clone'").c_str()) == 0;
    const auto before = measurePrivateSize(original);
    const auto clone = measurePrivateSize(fs::path(mount) / "clone");
    std::ofstream(fs::path(mount) / "plain", std::ios::binary) << noise(2 * kMiB, 7);
    ::sync();
    const auto plain = measurePrivateSize(fs::path(mount) / "plain");
    const int unmounted = std::system(("umount '" + mount + "'").c_str());
    EXPECT_EQ(unmounted, 0);
    ASSERT_TRUE(cloned);
    EXPECT_EQ(before, 0);
    EXPECT_EQ(clone, 0);
    EXPECT_GE(plain, static_cast<std::int64_t>(2 * kMiB)) << "a plain copy has its own blocks";
}

}  // namespace
}  // namespace kestrow
