#include "insights/hog_store.h"

#include <fcntl.h>
#include <unistd.h>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <algorithm>

#include "insights/hog_scanner.h"
#include "support/atomic_file.h"
#include "support/iso_date.h"
#include "support/recording_log_sink.h"
#include "support/temp_folder.h"
#include "support/virtual_scheduler.h"

namespace kestrow {
namespace {

namespace fs = std::filesystem;

WallTime date(const char* iso) {
    return parseIsoDate(iso).value();
}

std::vector<std::string> listing(const fs::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

TEST(SizeSnapshot, JsonKeepsDateFromTwoThousandOneAndLeavesUnknownFreeSpaceOut) {
    const SizeSnapshot snapshot{date("2026-11-14T03:15:00Z"),
                                std::nullopt,
                                {{"/home/u/VMs", 26'000'000'000}, {"/home/u", 90'000'000'000}}};
    const auto json = nlohmann::json::parse(snapshot.toJson());
    EXPECT_EQ(json["date"].get<double>(), 816318900.0);
    EXPECT_FALSE(json.contains("freeBytes"));
    EXPECT_EQ(json["sizes"]["/home/u/VMs"].get<std::int64_t>(), 26'000'000'000);
    EXPECT_EQ(SizeSnapshot::fromJson(snapshot.toJson()), snapshot);

    SizeSnapshot withFree = snapshot;
    withFree.freeBytes = 123'456'789'012;
    EXPECT_EQ(SizeSnapshot::fromJson(withFree.toJson()), withFree);
}

TEST(SizeSnapshot, TheKindIsKeptAndOlderFilesReadAsNightly) {
    SizeSnapshot manual{date("2026-11-14T03:15:00Z"), 5, {{"/home/u", 1}}};
    manual.kind = SizeSnapshot::Kind::manual;
    EXPECT_EQ(nlohmann::json::parse(manual.toJson())["kind"], "manual");
    EXPECT_EQ(SizeSnapshot::fromJson(manual.toJson()), manual);
    const SizeSnapshot nightly{date("2026-11-14T03:15:00Z"), 5, {{"/home/u", 1}}};
    EXPECT_EQ(nlohmann::json::parse(nightly.toJson())["kind"], "nightly");
    EXPECT_EQ(SizeSnapshot::fromJson(nightly.toJson()), nightly);

    // Written before scans had a kind: the nightly scan wrote them.
    EXPECT_EQ(SizeSnapshot::fromJson(R"({"date": 5, "sizes": {}})")->kind,
              SizeSnapshot::Kind::nightly);
    // A kind we do not know never sets the pace.
    for (const char* kind : {R"("hourly")", "1", "null", R"("Nightly")"}) {
        const auto read = SizeSnapshot::fromJson(
            fmt::format(R"({{"date": 5, "sizes": {{}}, "kind": {}}})", kind));
        ASSERT_TRUE(read) << kind;
        EXPECT_EQ(read->kind, SizeSnapshot::Kind::manual) << kind;
    }
}

TEST(HogStore, ARunOfManualScansNeverPrunesTheNewestTwoNightlySnapshots) {
    testing::TempFolder temp;
    const HogStore store(temp / "sizes");
    const WallTime first = date("2026-11-01T02:00:00Z");
    for (int day = 0; day < 3; ++day)
        ASSERT_TRUE(store.save({addSeconds(first, day * 86'400.0), 100 - day, {}}));
    for (int scan = 0; scan < 12; ++scan) {
        SizeSnapshot manual{addSeconds(first, 3 * 86'400.0 + scan * 60.0), 90, {}};
        manual.kind = SizeSnapshot::Kind::manual;
        ASSERT_TRUE(store.save(manual));
    }
    const auto loaded = store.load();
    ASSERT_EQ(loaded.size(), 10u) << "the newest eight and the two nightly ones";
    EXPECT_EQ(loaded[0].date, addSeconds(first, 86'400.0));
    EXPECT_EQ(loaded[0].kind, SizeSnapshot::Kind::nightly);
    EXPECT_EQ(loaded[1].kind, SizeSnapshot::Kind::nightly);
    EXPECT_EQ(loaded[2].kind, SizeSnapshot::Kind::manual);
    EXPECT_EQ(loaded[2].date, addSeconds(first, 3 * 86'400.0 + 4 * 60.0));
    EXPECT_FALSE(fs::exists(store.folder() / "2026-11-01T020000Z.json"));
}

TEST(SizeSnapshot, MalformedTextReadsAsNothingAndBadEntriesAreLeftOut) {
    EXPECT_FALSE(SizeSnapshot::fromJson(""));
    EXPECT_FALSE(SizeSnapshot::fromJson("{\"date\": 1"));
    EXPECT_FALSE(SizeSnapshot::fromJson("[1, 2]"));
    EXPECT_FALSE(SizeSnapshot::fromJson(R"({"sizes": {}})"));
    EXPECT_FALSE(SizeSnapshot::fromJson(R"({"date": "yesterday", "sizes": {}})"));
    EXPECT_FALSE(SizeSnapshot::fromJson(R"({"date": 1e300, "sizes": {}})"));
    EXPECT_FALSE(SizeSnapshot::fromJson(R"({"date": 5, "sizes": []})"));

    const auto snapshot = SizeSnapshot::fromJson(
        R"({"date": 816318900.5, "freeBytes": -4,
            "sizes": {"/a": 600000000, "/b": -1, "/c": "big", "/d": 7.5, "/e": 8e8,
                      "/f": 18446744073709551615}})");
    ASSERT_TRUE(snapshot);
    EXPECT_EQ(snapshot->freeBytes, std::nullopt);
    EXPECT_EQ(snapshot->sizes,
              (std::map<std::string, std::int64_t>{{"/a", 600'000'000}, {"/e", 800'000'000}}));
    EXPECT_EQ(formatIsoDate(snapshot->date), "2026-11-14T03:15:00Z");
}

TEST(HogStore, NamesAreTheScanTimeInUtcAndOnlyThoseAreOurs) {
    EXPECT_EQ(HogStore::snapshotName(addSeconds(date("2026-11-14T03:15:00Z"), 0.9)),
              "2026-11-14T031500Z.json");
    EXPECT_TRUE(HogStore::isSnapshotName("2026-11-14T031500Z.json"));
    for (const char* name : {"2026-11-14T031500Z.json.tmp", "2026-11-14T03150Z.json",
                             "2026-11-14T031500Z.JSON", "2026-11-14 031500Z.json",
                             "x2026-11-14T031500Z.json", "2026-1a-14T031500Z.json", "notes.txt"})
        EXPECT_FALSE(HogStore::isSnapshotName(name)) << name;

    std::vector<std::string> names{"notes.txt"};
    for (int day = 10; day >= 1; --day)
        names.push_back(fmt::format("2026-11-{:02}T031500Z.json", day));
    EXPECT_EQ(HogStore::snapshotsToPrune(names, 8),
              (std::vector<std::string>{"2026-11-01T031500Z.json", "2026-11-02T031500Z.json"}));
    names.resize(5);
    EXPECT_TRUE(HogStore::snapshotsToPrune(names, 8).empty());
}

TEST(HogStore, SavesAtomicallyLoadsInTimeOrderAndKeepsTheNewestEight) {
    testing::TempFolder temp;
    const UserLocations folders{temp.path(), temp / ".config", temp / "data", temp / ".cache", {}};
    const HogStore store(HogStore::folderIn(folders));
    EXPECT_EQ(store.folder(), temp / "data" / "Orvel" / "sizes");
    EXPECT_TRUE(store.load().empty()) << "a missing folder holds no snapshots";

    const WallTime first = date("2026-11-01T02:00:00Z");
    for (int day = 9; day >= 0; --day) {
        std::string error;
        ASSERT_TRUE(
            store.save({addSeconds(first, day * 86'400.0), 1000 - day, {{"/h", day}}}, &error))
            << error;
        if (day == 5) {
            // Things that are not ours, and one of ours that cannot be read.
            temp.write("data/Orvel/sizes/notes.txt", "mine");
            temp.write("data/Orvel/sizes/2026-10-01T000000Z.json.bak", "{}");
            temp.write("data/Orvel/sizes/2026-10-30T000000Z.json", "{not json");
            fs::create_directories(store.folder() / "2026-10-02T000000Z.json");
            EXPECT_EQ(store.load().size(), 5u);
        }
    }
    const auto names = listing(store.folder());
    EXPECT_EQ(names,
              (std::vector<std::string>{
                  "2026-10-01T000000Z.json.bak", "2026-10-02T000000Z.json",
                  "2026-11-03T020000Z.json", "2026-11-04T020000Z.json", "2026-11-05T020000Z.json",
                  "2026-11-06T020000Z.json", "2026-11-07T020000Z.json", "2026-11-08T020000Z.json",
                  "2026-11-09T020000Z.json", "2026-11-10T020000Z.json", "notes.txt"}));
    const auto loaded = store.load();
    ASSERT_EQ(loaded.size(), 8u);
    EXPECT_EQ(loaded.front().sizes.at("/h"), 2);
    EXPECT_EQ(loaded.back().sizes.at("/h"), 9);
    EXPECT_EQ(loaded.back().freeBytes, 991);
}

TEST(HogStore, ASaveThatCannotWriteSaysWhy) {
    testing::TempFolder temp;
    temp.write("Orvel", "a file where the folder should be");
    const HogStore store(temp / "Orvel" / "sizes");
    std::string error;
    EXPECT_FALSE(store.save({date("2026-11-01T02:00:00Z"), std::nullopt, {}}, &error));
    EXPECT_FALSE(error.empty());
}

// Space that counts as used without writing it.
void allocate(const fs::path& file, off_t bytes) {
    fs::create_directories(file.parent_path());
    const int fd = ::open(file.c_str(), O_CREAT | O_WRONLY, 0600);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(::posix_fallocate(fd, 0, bytes), 0);
    ::close(fd);
}

TEST(HogScanner, WalksTheHomeWithoutEitherTrash) {
    testing::TempFolder temp;
    const fs::path home = temp / "home";
    const UserLocations folders{home, home / ".config", home / ".local/share", home / ".cache", {}};
    constexpr off_t kSize = 600'000'000;
    allocate(home / "big" / "blob", kSize);
    allocate(home / "projects" / "Trash" / "blob", kSize);  // only the real ones are left out
    allocate(home / ".Trash" / "blob", kSize);
    allocate(home / ".local/share/Trash/files/blob", kSize);
    ASSERT_TRUE(HogStore(HogStore::folderIn(folders)).save({WallTime{}, std::nullopt, {}}));

    testing::RecordingLogSink sink;
    VirtualScheduler clock;
    const HogScanner scanner(folders, clock, Logger(sink, LogArea::general));
    const SizeSnapshot snapshot = scanner.snapshot(date("2026-11-14T03:15:00Z"));
    EXPECT_EQ(snapshot.date, date("2026-11-14T03:15:00Z"));
    std::vector<std::string> found;
    for (const auto& [path, size] : snapshot.sizes) found.push_back(path);
    EXPECT_EQ(found, (std::vector<std::string>{home.string(), (home / "big").string(),
                                               (home / "projects").string(),
                                               (home / "projects/Trash").string()}));
    EXPECT_GE(snapshot.sizes.at(home.string()), 2 * kSize);
    EXPECT_LT(snapshot.sizes.at(home.string()), 3 * kSize);
    ASSERT_TRUE(snapshot.freeBytes);
    EXPECT_GT(*snapshot.freeBytes, 0);
    EXPECT_EQ(sink.messages(), std::vector<std::string>{"Hog watch: snapshot of 4 folders in 0s"});
}

// Quitting stops the nightly walk part way; what it had seen must not pass for a snapshot, where
// every folder not yet reached would read as one that shrank to nothing.
TEST(HogScanner, AWalkStoppedPartWayIsNoSnapshot) {
    testing::TempFolder temp;
    const fs::path home = temp / "home";
    const UserLocations folders{home, home / ".config", home / ".local/share", home / ".cache", {}};
    allocate(home / "big" / "blob", 600'000'000);
    testing::RecordingLogSink sink;
    VirtualScheduler clock;
    std::stop_source stop;
    const HogScanner scanner(folders, clock, Logger(sink, LogArea::general), stop.get_token());
    EXPECT_EQ(scanner.snapshot(date("2026-11-14T03:15:00Z")).sizes.size(), 2U);
    stop.request_stop();
    EXPECT_THROW(scanner.snapshot(date("2026-11-15T03:15:00Z")), std::runtime_error);
}

}  // namespace
}  // namespace kestrow
