#include "backup/deja_dup_source.h"

#include <gtest/gtest.h>

#include "app/settings/settings_keys.h"
#include "support/recording_log_sink.h"
#include "support/temp_folder.h"
#include "support/time_machine_fakes.h"
#include "support/virtual_scheduler.h"

namespace kestrow {
namespace {

// The settings as the test sets them; the test decides when they "changed".
class FakeSettingsReader final : public DejaDupSettingsReader {
public:
    struct FakeWatch final : Watch {
        explicit FakeWatch(std::shared_ptr<std::function<void()>> c) : callback(std::move(c)) {}
        std::shared_ptr<std::function<void()>> callback;
    };
    std::optional<DejaDupSettings> read() override {
        ++reads;
        return settings;
    }
    std::unique_ptr<Watch> watch(std::function<void()> changed) override {
        if (!settings) return nullptr;
        auto callback = std::make_shared<std::function<void()>>(std::move(changed));
        current = callback;
        return std::make_unique<FakeWatch>(callback);
    }
    bool watching() const { return !current.expired(); }
    void change(DejaDupSettings next) {
        settings = std::move(next);
        if (const auto callback = current.lock()) (*callback)();
    }

    std::optional<DejaDupSettings> settings;
    int reads = 0;
    std::weak_ptr<std::function<void()>> current;
};

class FakeProcesses final : public RunningProcesses {
public:
    ProcessListing current() override { return listing; }
    bool applicationRunning(const std::string&) override { return false; }
    ProcessListing listing = std::vector<RunningProcess>{};
};

class FakeLauncher final : public ProgramLauncher {
public:
    std::optional<std::string> startDetached(const std::string& program,
                                             const std::vector<std::string>& arguments) override {
        std::vector<std::string> call{program};
        call.insert(call.end(), arguments.begin(), arguments.end());
        calls.push_back(call);
        return error;
    }
    std::optional<std::string> error;
    std::vector<std::vector<std::string>> calls;
};

DejaDupSettings backedUp(const char* lastBackup) {
    DejaDupSettings s;
    s.backend = "drive";
    s.driveUuid = "7c1e";
    s.driveName = "Backup Disk";
    s.periodic = true;
    s.lastBackup = lastBackup;
    s.hostName = "studio";
    return s;
}

RunningProcess process(std::string name, std::vector<std::string> arguments) {
    return RunningProcess{std::move(name), std::nullopt, std::move(arguments)};
}

class DejaDupSourceTest : public ::testing::Test {
protected:
    std::unique_ptr<DejaDupSource> make() {
        auto made = std::make_unique<DejaDupSource>(
            DejaDupSource::Dependencies{reader, processes, launcher, shared, clock.mainExecutor(),
                                        Logger(sink, LogArea::general)});
        connection = made->changed.connect([this] { ++changes; });
        return made;
    }
    std::optional<WallTime> storedBackup() {
        const auto stored = shared.load();
        if (!stored || !stored->lastDestination) return std::nullopt;
        return stored->lastDestination->newestSnapshot();
    }
    std::optional<bool> running(DejaDupSource& source) {
        std::optional<LiveBackupReading> reading;
        source.liveStatus([&reading](LiveBackupReading r) { reading = r; });
        EXPECT_FALSE(reading) << "the answer comes later, on the main executor";
        clock.runPending();
        EXPECT_TRUE(reading);
        if (!reading) return std::nullopt;
        EXPECT_EQ(reading->status.running, reading->running.value_or(false));
        EXPECT_EQ(reading->status.percent, std::nullopt);
        return reading->running;
    }

    VirtualScheduler clock;
    testing::TempFolder folder;
    testing::RecordingLogSink sink;
    SettingsStore store{folder / "shared.plist", Logger(sink, LogArea::general)};
    testing::RecordingWidgetHost widgets;
    SharedPreferences shared{store, widgets, Logger(sink, LogArea::general)};
    FakeSettingsReader reader;
    FakeProcesses processes;
    FakeLauncher launcher;
    int changes = 0;
    Signal<>::Connection connection;
};

TEST_F(DejaDupSourceTest, StartStoresTheSnapshotOrRemovesOneLeftBehind) {
    ASSERT_TRUE(shared.store(Preferences{}));  // another source's, from an earlier run
    auto source = make();
    EXPECT_EQ(source->name(), (BackupSourceName{BackupSourceKind::dejaDup, "Déjà Dup"}));
    source->start();  // Déjà Dup is not installed
    EXPECT_FALSE(source->configured());
    EXPECT_EQ(store.value(keys::preferences), std::nullopt);
    EXPECT_EQ(changes, 1);
    EXPECT_FALSE(reader.watching());
    EXPECT_TRUE(sink.contains("Déjà Dup is not installed"));

    reader.settings = DejaDupSettings{};  // installed, never set up
    source->start();
    EXPECT_FALSE(source->configured());
    EXPECT_EQ(store.value(keys::preferences), std::nullopt);
    EXPECT_EQ(changes, 2) << "every start says what it found";
    EXPECT_TRUE(sink.contains("Déjà Dup is not set up to back up"));

    reader.settings = backedUp("2026-11-20T08:00:00Z");
    source->start();
    EXPECT_TRUE(source->configured());
    EXPECT_EQ(storedBackup(), DejaDupSettings::parseDate("2026-11-20T08:00:00Z"));
    EXPECT_EQ(shared.load()->lastDestination->volumeName, "Backup Disk");
    EXPECT_EQ(shared.load()->automaticBackups, true);
    EXPECT_EQ(changes, 3);
    EXPECT_TRUE(reader.watching());
}

TEST_F(DejaDupSourceTest, ABurstOfChangesIsReadOnceAndOnlyARealChangeIsAnnounced) {
    reader.settings = backedUp("2026-11-20T08:00:00Z");
    auto source = make();
    source->start();
    ASSERT_EQ(reader.reads, 1);
    const auto reloads = widgets.reloads.size();

    // A backup ends: Déjà Dup writes its keys one after another.
    auto next = backedUp("2026-11-21T08:00:00Z");
    reader.change(next);
    next.lastRun = "2026-11-21T08:00:01Z";
    reader.change(next);
    clock.advance(DejaDupSource::kSettleSeconds / 2);
    reader.change(next);
    EXPECT_EQ(reader.reads, 1) << "nothing is read while the keys are still being written";
    clock.advance(DejaDupSource::kSettleSeconds / 2);
    EXPECT_EQ(reader.reads, 2);
    EXPECT_EQ(storedBackup(), DejaDupSettings::parseDate("2026-11-21T08:00:00Z"));
    EXPECT_EQ(changes, 2);

    // A key Kestrow does not show (say, the window size) changes nothing stored.
    reader.change(next);
    clock.advance(DejaDupSource::kSettleSeconds);
    EXPECT_EQ(reader.reads, 3);
    EXPECT_EQ(changes, 2);
    EXPECT_EQ(widgets.reloads.size(), reloads + 1) << "an unchanged snapshot is not stored again";

    // The user turns the schedule off and forgets the drive: no longer configured.
    next.lastBackup.clear();
    next.periodic = false;
    reader.change(next);
    clock.advance(DejaDupSource::kSettleSeconds);
    EXPECT_FALSE(source->configured());
    EXPECT_EQ(store.value(keys::preferences), std::nullopt);
    EXPECT_EQ(changes, 3);

    source->stop();
    EXPECT_FALSE(reader.watching());
    reader.settings = backedUp("2026-11-22T08:00:00Z");
    clock.advance(10);
    EXPECT_EQ(reader.reads, 4);
}

TEST_F(DejaDupSourceTest, AReadDueWhenTheSourceStopsOrGoesNeverRuns) {
    reader.settings = backedUp("2026-11-20T08:00:00Z");
    auto source = make();
    source->start();
    reader.change(backedUp("2026-11-21T08:00:00Z"));
    source->stop();
    clock.advance(10);
    EXPECT_EQ(reader.reads, 1);

    source->start();
    EXPECT_EQ(reader.reads, 2);
    reader.change(backedUp("2026-11-22T08:00:00Z"));
    source.reset();
    clock.advance(10);  // would touch the destroyed source
    EXPECT_EQ(reader.reads, 2);
}

TEST_F(DejaDupSourceTest, RunsWhenDejaDupBacksUpOrItsToolBacksUpForIt) {
    reader.settings = backedUp("2026-11-20T08:00:00Z");
    auto source = make();
    source->start();

    EXPECT_EQ(running(*source), false);

    processes.listing = std::vector{process("deja-dup", {"/usr/bin/deja-dup"}),
                                    process("deja-dup-monitor", {"/usr/libexec/deja-dup-monitor"})};
    EXPECT_EQ(running(*source), false) << "the window open, or the monitor waiting";

    processes.listing = std::vector{process("deja-dup", {"deja-dup", "--backup", "--auto"})};
    EXPECT_EQ(running(*source), true);

    // Back Up Now in Déjà Dup's window: the tool runs, a Python script behind its interpreter.
    const RunningProcess tool{"python3",
                              "/usr/bin/python3.11",
                              {"/usr/bin/python3", "/usr/bin/duplicity", "incremental",
                               "--archive-dir=/home/me/.cache/deja-dup", "/home/me"}};
    processes.listing = std::vector{tool};
    EXPECT_EQ(running(*source), true);

    RunningProcess restoring = tool;
    restoring.arguments[2] = "restore";
    processes.listing = std::vector{restoring};
    EXPECT_EQ(running(*source), false) << "a restore is not a backup";

    processes.listing =
        std::vector{process("duplicity", {"duplicity", "full", "/srv", "file:///mnt"})};
    EXPECT_EQ(running(*source), false) << "someone's own use of the tool";

    const RunningProcess restic{
        "restic",
        "/usr/bin/restic",
        {"restic", "backup", "--cache-dir=/home/me/.cache/deja-dup/restic"}};
    processes.listing = std::vector{restic};
    EXPECT_EQ(running(*source), false) << "not the tool Déjà Dup is set to use";
    auto withRestic = backedUp("2026-11-20T08:00:00Z");
    withRestic.tool = "restic";
    reader.change(withRestic);
    clock.advance(DejaDupSource::kSettleSeconds);
    EXPECT_EQ(running(*source), true);

    processes.listing = std::nullopt;
    EXPECT_EQ(running(*source), std::nullopt) << "an unreadable process table says nothing";
}

TEST_F(DejaDupSourceTest, BackUpNowAsksDejaDupAndReportsALaunchFailure) {
    auto source = make();
    std::vector<StartBackupOutcome> outcomes;
    source->startBackup([&outcomes](StartBackupOutcome o) { outcomes.push_back(o); });
    EXPECT_TRUE(outcomes.empty());
    clock.runPending();
    ASSERT_EQ(outcomes.size(), 1U);
    EXPECT_EQ(outcomes[0], StartBackupOutcome{StartBackupOutcome::Accepted{}});
    EXPECT_EQ(launcher.calls, (std::vector<std::vector<std::string>>{{"deja-dup", "--backup"}}));

    launcher.error = "No such file or directory";
    source->startBackup([&outcomes](StartBackupOutcome o) { outcomes.push_back(o); });
    clock.runPending();
    ASSERT_EQ(outcomes.size(), 2U);
    EXPECT_EQ(outcomes[1],
              StartBackupOutcome{StartBackupOutcome::LaunchFailed{"No such file or directory"}});
    EXPECT_TRUE(sink.contains("No such file or directory"));

    std::optional<FailureReasonAnswer> answer;
    source->failureReasons().lookup(clock.now(), 0,
                                    [&answer](FailureReasonAnswer a) { answer = a; });
    clock.runPending();
    EXPECT_EQ(answer, (FailureReasonAnswer{std::nullopt, true}));
}

}  // namespace
}  // namespace kestrow
