// The duplicate finder's promises under attack: the last copy of a file never goes, whatever
// names and mounts lead to it; the figures count only what emptying the Trash gives back; and a
// scan never hangs and stops when asked.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <fstream>
#include <thread>

#include "duplicate_test_files.h"
#include "insights/duplicate_finder.h"
#include "insights/duplicate_hashing.h"
#include "insights/duplicate_identity.h"
#include "insights/duplicate_roots.h"
#include "insights/duplicate_trash.h"
#include "insights/duplicates_model.h"
#include "support/bounded_child.h"
#include "support/recording_log_sink.h"
#include "support/temp_folder.h"
#include "support/virtual_scheduler.h"

namespace kestrow {
namespace {

using namespace duplicate_test;

// A Trash anywhere a root can reach it is not where copies are kept: the home's Trash reached
// through a symbolic link to the home, a volume's .Trash-UID and .Trash/UID, a root inside one.
TEST(DuplicateFinder, ACopyInATrashIsNeverACopy) {
    TempFolder temp;
    temp.write("real/Documents/a.bin", noise(2 * kMiB, 11));
    temp.write("real/.local/share/Trash/files/a.bin", noise(2 * kMiB, 11));
    temp.write("real/disk/.Trash-1000/files/a.bin", noise(2 * kMiB, 11));
    temp.write("real/disk/.Trash/1000/files/a.bin", noise(2 * kMiB, 11));
    fs::create_directory_symlink(temp / "real", temp / "home");
    testing::RecordingLogSink sink;
    DuplicateFinder::Options options{2, {temp / "home/.local/share/Trash"}, {}};
    const DuplicateFinder finder(Logger(sink, LogArea::general), options);

    const auto result =
        finder.scan({temp / "home/Documents", temp / "real/.local/share", temp / "real/disk",
                     temp / "home/.local/share/Trash/files", temp / "home/.local/share/Trash"});
    EXPECT_TRUE(result.groups.empty()) << pathsOf(result.groups, temp.path()).front().back();

    temp.write("real/disk/b.bin", noise(2 * kMiB, 11));
    const auto found = finder.scanFilesCounting({temp / "home/Documents", temp / "home/disk"});
    ASSERT_EQ(found.files.size(), 2u);
    EXPECT_EQ(found.files[0].path, (temp / "real/Documents/a.bin").string())
        << "roots are taken as the kernel resolves them";
    EXPECT_EQ(found.files[0].anchor, (temp / "real/Documents").string());
    EXPECT_EQ(found.files[1].anchor, (temp / "real/disk").string());
}

// Through a home reached by a symbolic link, the filed copy is still the one that stays: the
// folders that decide which copy stays are resolved like the copies' paths.
TEST(DuplicateRoots, TheFiledCopyStaysThroughASymlinkedHome) {
    TempFolder temp;
    const auto now = fs::file_time_type::clock::now();
    temp.write("real/Downloads/a.bin", noise(2 * kMiB, 13));
    fs::last_write_time(temp / "real/Downloads/a.bin", now - std::chrono::hours(2));
    temp.write("real/Documents/a.bin", noise(2 * kMiB, 13));
    fs::create_directory_symlink(temp / "real", temp / "home");
    const auto locations =
        UserLocations::resolve(temp.homeEnvironment({{"HOME", (temp / "home").string()}}));
    const auto roots = DuplicateRoots::resolve(locations, {});
    testing::RecordingLogSink sink;
    const auto groups =
        DuplicateFinder(Logger(sink, LogArea::general), {2, {}, {}}).scan(roots.all()).groups;
    ASSERT_EQ(groups.size(), 1u);
    EXPECT_EQ(DuplicatesModel::proposals(groups, roots.keepPreference()),
              std::set<std::string>{(temp / "real/Downloads/a.bin").string()});
}

// One file reached through two mounts is one file: found once, and never moved as a copy of
// itself even when a scan could not tell the two names apart.
TEST(DuplicateFinder, OneFileThroughTwoMountsIsNeverItsOwnCopy) {
    TempFolder temp;
    temp.write("Documents/a.bin", noise(2 * kMiB, 12));
    fs::create_directories(temp / "Desktop");
    if (::geteuid() != 0 || ::mount((temp / "Documents").c_str(), (temp / "Desktop").c_str(),
                                    nullptr, MS_BIND, nullptr) != 0) {
        GTEST_SKIP() << "needs root to bind-mount a folder";
    }
    struct Unmount {
        fs::path at;
        ~Unmount() { ::umount2(at.c_str(), MNT_DETACH); }
    } unmount{temp / "Desktop"};
    testing::RecordingLogSink sink;
    const DuplicateFinder finder(Logger(sink, LogArea::general), {2, {}, {}});
    EXPECT_TRUE(finder.scan({temp / "Desktop", temp / "Documents"}).groups.empty());

    // Two scans, one per name, make a group the finder itself would never make: the move of one
    // name takes the other with it, so it is put back.
    DuplicateGroup group;
    for (const char* root : {"Desktop", "Documents"})
        group.files.push_back(finder.scanFilesCounting({temp / root}).files.at(0));
    FolderTrash trash(temp / "Desktop/.set-aside");
    const auto report = trashDuplicates({group.files[0].path}, {group}, {}, trash);
    EXPECT_EQ(trash.moved, std::vector<std::string>{group.files[0].path});
    EXPECT_EQ(trash.putBackItems, std::vector<std::string>{group.files[0].path});
    EXPECT_TRUE(report.moved.empty());
    EXPECT_EQ(report.skipped, 1);
    EXPECT_EQ(report.movedBytes, 0);
    EXPECT_TRUE(unchangedSinceScan(group.files[0]));
    EXPECT_TRUE(unchangedSinceScan(group.files[1]));
}

TEST(DuplicateIdentity, EveryMountOfOneShareOrDeviceIsOneVolume) {
    const auto mounts = DuplicateIdentity::fromMountInfo(
        "22 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw\n"
        "23 22 8:1 /home/u/Documents /home/u/Desktop rw shared:1 - ext4 /dev/sda1 rw\n"
        "40 22 0:51 / /mnt/one rw,relatime - cifs //NAS/Photos rw,vers=3.1.1\n"
        "41 22 0:52 /2024 /mnt/two rw,relatime - smb3 //nas/photos/2024 rw\n"
        "42 22 0:53 / /mnt/other rw - cifs //nas/music rw\n"
        "43 22 0:54 / /mnt/n1 rw - nfs4 srv:/export rw\n"
        "44 22 0:55 / /mnt/n2 rw - nfs4 srv:/export rw\n"
        "45 22 0:56 / /run/user/1000/gvfs rw,nosuid master:7 opt:x - fuse.gvfsd-fuse gvfsd-fuse "
        "rw\n"
        "46 22 0:57 / /mnt/view rw - fuse.bindfs /data rw\n"
        "47 22 0:58 / /mnt/view2 rw - fuse.bindfs /data rw\n"
        "broken line\n"
        "48 22 x:y / /mnt/bad rw - ext4 /dev/sdb rw\n"
        "49 22 0:59 / /mnt/short rw -\n");
    EXPECT_EQ(mounts.size(), 9u) << "one entry per device; malformed lines are passed over";
    const auto dev = [](unsigned major, unsigned minor) { return makedev(major, minor); };
    EXPECT_EQ(mounts.volumeOf(dev(0, 51)), mounts.volumeOf(dev(0, 52)))
        << "one SMB share, whatever the case, the dialect or the folder mounted";
    EXPECT_NE(mounts.volumeOf(dev(0, 51)), mounts.volumeOf(dev(0, 53)));
    EXPECT_EQ(mounts.volumeOf(dev(0, 54)), mounts.volumeOf(dev(0, 55)));
    EXPECT_EQ(mounts.volumeOf(dev(0, 57)), mounts.volumeOf(dev(0, 58)));
    EXPECT_NE(mounts.volumeOf(dev(8, 1)), mounts.volumeOf(dev(8, 2)));
    EXPECT_EQ(mounts.fileOf(dev(0, 51), 7), mounts.fileOf(dev(0, 52), 7));
    EXPECT_NE(mounts.fileOf(dev(0, 51), 7), mounts.fileOf(dev(0, 52), 8));

    // Two files with one identity are one file: the first name stands for it.
    DuplicateFile one{"/mnt/one/x", 1, dev(0, 51), 7, {}, 0, mounts.volumeOf(dev(0, 51)), ""};
    DuplicateFile two{"/mnt/two/x", 1, dev(0, 52), 7, {}, 0, mounts.volumeOf(dev(0, 52)), ""};
    EXPECT_EQ(DuplicateFinder::identity(one), DuplicateFinder::identity(two));
    two.volume.clear();
    EXPECT_EQ(DuplicateFinder::identity(two), std::to_string(dev(0, 52)) + ":7");
    EXPECT_GT(DuplicateIdentity::current().size(), 0u) << "this process's own mount table";
}

// A copy whose blocks another hard link keeps frees nothing, and the moved figure says so.
TEST(DuplicateTrash, ACopyKeptAliveByAnotherLinkFreesNothing) {
    CopiesOnDisk disk;
    fs::create_hard_link(disk.root / "Desktop/c1", disk.elsewhere / "c1 elsewhere");
    testing::RecordingLogSink sink;
    const auto groups =
        DuplicateFinder(Logger(sink, LogArea::general)).scan({disk.root.path()}).groups;
    ASSERT_EQ(groups[0].files.size(), 2u);
    EXPECT_EQ(groups[0].files[0].privateSize, 0);
    EXPECT_GE(groups[0].files[1].privateSize, static_cast<std::int64_t>(kMiB));
    EXPECT_EQ(reclaimable(groups[0]), groups[0].files[1].privateSize);

    auto report = trashDuplicates({disk / "Desktop/c1"}, groups, {}, disk.trash);
    EXPECT_EQ(report.moved, std::vector<std::string>{disk / "Desktop/c1"});
    EXPECT_EQ(report.movedBytes, 0);
    // A link made after the scan counts the same way.
    fs::create_hard_link(disk.root / "Desktop/b1", disk.elsewhere / "b1 elsewhere");
    report = trashDuplicates({disk / "Desktop/b1"}, groups, {}, disk.trash);
    EXPECT_EQ(report.moved, std::vector<std::string>{disk / "Desktop/b1"});
    EXPECT_EQ(report.movedBytes, 0);
    // A size not known is not counted as freed either.
    auto unknown = groups;
    unknown[1].files[1].privateSize.reset();
    report = trashDuplicates({disk / "Desktop/b2"}, unknown, {}, disk.trash);
    EXPECT_EQ(report.moved, std::vector<std::string>{disk / "Desktop/b2"});
    EXPECT_EQ(report.movedBytes, 0);
}

// A FIFO put in place of a scanned file, with a writer that never writes, would hold a read
// forever: it is never read.
TEST(DuplicateFinder, NeverWaitsOnAFifoInPlaceOfAScannedFile) {
    CopiesOnDisk disk;
    testing::RecordingLogSink sink;
    const DuplicateFinder finder(Logger(sink, LogArea::general), {2, {}, {}});
    const auto scanned = finder.scanFilesCounting({disk.root / "Desktop"}).files;
    ASSERT_EQ(scanned.size(), 6u);
    fs::remove(disk / "Desktop/c2");
    ASSERT_EQ(::mkfifo((disk / "Desktop/c2").c_str(), 0600), 0);
    const auto answer = testing::withinTime(std::chrono::seconds(20), [&] {
        const int writer = ::open((disk / "Desktop/c2").c_str(), O_RDWR);
        if (writer < 0) return std::string("no writer");
        std::string seen = DuplicateFinder::hash(disk / "Desktop/c2").value_or("none");
        for (const auto& group : finder.findGroups(scanned)) seen += " " + group.files[0].path;
        ::close(writer);
        return seen;
    });
    EXPECT_EQ(answer, "none " + disk / "Desktop/b1") << "c1 has no copy left to compare with";
}

// Nothing to scan is an empty answer at once, and a scan asked to stop ends within moments
// however big the files it is hashing.
TEST(DuplicateFinder, EndsAtOnceWithNothingAndStopsWhenAsked) {
    TempFolder temp;
    testing::RecordingLogSink sink;
    const auto empty = testing::withinTime(std::chrono::seconds(20), [&] {
        const DuplicateFinder finder(Logger(sink, LogArea::general));
        const auto none = finder.scan({});
        const auto missing = finder.scan({temp / "nowhere", temp / "gone"});
        return std::to_string(none.groups.size() + missing.groups.size()) + " " +
               std::to_string(none.skipped + missing.skipped);
    });
    EXPECT_EQ(empty, "0 0");

    // Two equal sparse files far too big to hash in the time allowed.
    for (const char* name : {"big-1", "big-2"}) {
        std::ofstream(temp / name).close();
        fs::resize_file(temp / name, std::uintmax_t{64} << 30);
    }
    std::stop_source stop;
    const DuplicateFinder finder(Logger(sink, LogArea::general), {2, {}, stop.get_token()});
    const auto scanned = finder.scanFilesCounting({temp.path()});
    ASSERT_EQ(scanned.files.size(), 2u);
    const auto started = std::chrono::steady_clock::now();
    std::jthread stopper([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        stop.request_stop();
    });
    const auto groups = finder.findGroups(scanned.files);
    const double took =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    EXPECT_TRUE(groups.empty()) << "a stopped scan answers nothing rather than half";
    EXPECT_LT(took, 5.0);
    EXPECT_TRUE(finder.scan({temp.path()}).groups.empty());
    std::vector<std::byte> buffer(4096);
    EXPECT_EQ(
        hashDuplicateCandidate((temp / "big-1").string(), nullptr, 10, buffer, stop.get_token()),
        std::nullopt);
}

TEST(DuplicatesModel, ACancelledScanPublishesNothing) {
    CopiesOnDisk disk;
    VirtualScheduler scheduler;
    SettingsStore standard(disk.root / ".config/kestrow/standard.plist",
                           Logger(disk.sink, LogArea::general));
    DuplicatesModel model(disk.modelOn(standard, scheduler));
    model.scan();
    model.cancel();
    EXPECT_FALSE(model.scanning.get());
    scheduler.runPending();
    EXPECT_TRUE(model.groups.get().empty());
    EXPECT_EQ(model.status.get(), "");

    model.scan();
    model.scan();  // the newer scan stops the older one; only its answer is shown
    scheduler.runPending();
    EXPECT_FALSE(model.scanning.get());
    EXPECT_EQ(model.groups.get().size(), 3u);
}

}  // namespace
}  // namespace kestrow
