// `kestrow hogs` in-process on a temporary home: stored snapshots in, the report out, and a real
// scan with --scan.
#include "cli/hogs_command.h"

#include <fcntl.h>
#include <unistd.h>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <chrono>
#include <sstream>

#include "app/settings/settings_keys.h"
#include "app/settings/settings_store.h"
#include "insights/hog_scanner.h"
#include "insights/hog_store.h"
#include "support/iso_date.h"
#include "support/temp_folder.h"

namespace kestrow {
namespace {

namespace fs = std::filesystem;

constexpr std::int64_t GB = 1'000'000'000;

class HogsCommand : public ::testing::Test {
protected:
    testing::TempFolder home;
    StderrLogSink sink;
    HogStore store{home / ".local/share/Orvel/sizes"};

    struct Outcome {
        int status = -1;
        std::string out;
        std::string err;
    };
    Outcome run(std::vector<std::string> arguments) const {
        std::ostringstream out;
        std::ostringstream err;
        const int status =
            runHogsCommand(CommandContext{std::move(arguments), out, err, home.homeEnvironment()});
        return {status, out.str(), err.str()};
    }
    nlohmann::json json(std::vector<std::string> arguments) const {
        arguments.push_back("--json");
        const Outcome outcome = run(std::move(arguments));
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        return nlohmann::json::parse(outcome.out, nullptr, false);
    }
    void save(const char* iso, std::optional<std::int64_t> free,
              std::map<std::string, std::int64_t> sizes) const {
        ASSERT_TRUE(store.save({parseIsoDate(iso).value(), free, std::move(sizes)}));
    }
};

TEST_F(HogsCommand, ReportsTheLastTwoSnapshotsWithDismissals) {
    save("2026-11-01T03:00:00Z", 900 * GB, {{"/h/old", 90 * GB}});
    save("2026-11-11T03:00:00Z", 520 * GB,
         {{"/h", 40 * GB}, {"/h/vm", 10 * GB}, {"/h/logs", 1 * GB}, {"/h/quiet", 10 * GB}});
    save("2026-11-13T03:00:00Z", 500 * GB,
         {{"/h", 100 * GB},
          {"/h/vm", 16 * GB},
          {"/h/logs", 14 * GB},
          {"/h/quiet", 16 * GB},
          {"/h/new", 5 * GB}});
    SettingsStore settings(home / ".config/kestrow/bar.vemb.orvel.plist",
                           Logger(sink, LogArea::general));
    settings.set(keys::hogWatchDismissed, PlistValue(PlistDict{{"/h/quiet", PlistValue(12 * GB)}}));

    const auto report = json({});
    const auto expected = nlohmann::json::parse(R"({
      "alerts": [
        {"path": "/h", "size": 100000000000, "growth": 60000000000, "isNew": false, "days": 2,
         "outside": 30000000000, "outsideOf": ["/h/logs", "/h/quiet", "/h/vm", "/h/new"]},
        {"path": "/h/logs", "size": 14000000000, "growth": 13000000000, "isNew": false,
         "days": 2, "outside": null, "outsideOf": []},
        {"path": "/h/vm", "size": 16000000000, "growth": 6000000000, "isNew": false, "days": 2,
         "outside": null, "outsideOf": []},
        {"path": "/h/new", "size": 5000000000, "growth": 5000000000, "isNew": true, "days": 2,
         "outside": null, "outsideOf": []}
      ],
      "daysUntilFull": 50,
      "snapshots": 3
    })");
    EXPECT_EQ(report, expected) << report.dump(2);

    const Outcome text = run({});
    EXPECT_EQ(text.status, 0);
    EXPECT_NE(text.out.find("/h/new  5 GB  new\n"), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("/h/vm  16 GB  grew 6 GB in 2 days\n"), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("3 snapshots\n"), std::string::npos) << text.out;
}

TEST_F(HogsCommand, NothingStoredAndBadArguments) {
    EXPECT_EQ(json({}),
              nlohmann::json::parse(R"({"alerts": [], "daysUntilFull": null, "snapshots": 0})"));
    const Outcome bad = run({"--now"});
    EXPECT_EQ(bad.status, kExitUsage);
    EXPECT_NE(bad.err.find("usage: kestrow hogs [--json] [--scan]"), std::string::npos);
}

TEST_F(HogsCommand, ScanTakesAndKeepsASnapshotNow) {
    fs::create_directories(home / "big");
    const int fd = ::open((home / "big/blob").c_str(), O_CREAT | O_WRONLY, 0600);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(::posix_fallocate(fd, 0, 600'000'000), 0);
    ::close(fd);
    for (int day = 1; day <= 8; ++day) {
        save(fmt::format("2026-10-{:02}T03:00:00Z", day).c_str(), std::nullopt, {});
    }

    const auto report = json({"--scan"});
    EXPECT_EQ(report["snapshots"], 8) << "the oldest made way";
    EXPECT_TRUE(report["alerts"].empty());
    const auto newest = store.load().back();
    EXPECT_GT(newest.date, parseIsoDate("2026-10-08T03:00:00Z").value());
    EXPECT_TRUE(newest.freeBytes);
    EXPECT_GE(newest.sizes.at((home / "big").string()), 600'000'000);
    EXPECT_FALSE(fs::exists(store.folder() / "2026-10-01T030000Z.json"));
}

// Two manual scans seconds apart measure no pace: however much the disk filled in between, the
// estimate waits for nightly snapshots.
TEST_F(HogsCommand, ManualScansSecondsApartNeverSayTheDiskIsFullNow) {
    // A manual scan five seconds ago, with 200 MB more free than there is now.
    const auto freeNow = HogScanner::freeBytes(home.path());
    ASSERT_TRUE(freeNow);
    SizeSnapshot earlier{addSeconds(std::chrono::system_clock::now(), -5.0),
                         *freeNow + 200'000'000,
                         {},
                         SizeSnapshot::Kind::manual};
    ASSERT_TRUE(store.save(earlier));

    const auto report = json({"--scan"});
    EXPECT_EQ(report["snapshots"], 2);
    EXPECT_TRUE(report["daysUntilFull"].is_null()) << report.dump();
    const auto stored = store.load();
    ASSERT_EQ(stored.size(), 2u);
    EXPECT_EQ(stored[1].kind, SizeSnapshot::Kind::manual) << "written as a manual scan";
    EXPECT_LT(stored[1].freeBytes.value(), stored[0].freeBytes.value());

    // Nightly snapshots a day apart still give the estimate, past the manual ones between.
    save("2026-10-01T03:00:00Z", 510 * GB, {});
    save("2026-10-02T03:00:00Z", 500 * GB, {});
    EXPECT_EQ(json({})["daysUntilFull"], 50);
}

}  // namespace
}  // namespace kestrow
