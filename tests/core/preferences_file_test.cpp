#include "timemachine/preferences_file.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <sys/stat.h>

#include <chrono>

#include "app/settings/settings_keys.h"
#include "support/deep_documents.h"
#include "support/recording_log_sink.h"
#include "support/temp_folder.h"
#include "support/virtual_scheduler.h"

namespace kestrow {
namespace {

// Keeps the watched path's callback so the test decides when the file "changed".
class FakeWatcher final : public FileWatcher {
public:
    using Callback = std::shared_ptr<std::function<void()>>;
    struct FakeWatch final : Watch {
        explicit FakeWatch(Callback c) : callback(std::move(c)) {}
        Callback callback;
    };
    std::unique_ptr<Watch> watch(const std::filesystem::path& file,
                                 std::function<void()> changed) override {
        watched = file;
        auto callback = std::make_shared<std::function<void()>>(std::move(changed));
        current = callback;
        return std::make_unique<FakeWatch>(callback);
    }
    bool watching() const { return !current.expired(); }
    void fire() {
        if (const auto callback = current.lock()) (*callback)();
    }

    std::filesystem::path watched;
    std::weak_ptr<std::function<void()>> current;
};

// Answers on the main executor as soon as virtual time runs.
class FakeTools final : public TimeMachineTools {
public:
    explicit FakeTools(Executor& main) : main_(main) {}
    void status(std::function<void(std::optional<std::string>)> done) override {
        ++statusCalls;
        main_.post([done = std::move(done), output = output] { done(output); });
    }
    void startBackup(std::function<void(StartBackupOutcome)> done) override {
        main_.post([done = std::move(done)] { done({StartBackupOutcome::Accepted{}}); });
    }
    std::optional<std::string> output;
    int statusCalls = 0;

private:
    Executor& main_;
};

class CountingWidgets final : public WidgetHost {
public:
    std::vector<Process> runningWidgetProcesses() const override { return {}; }
    void terminate(int) override {}
    std::optional<WallTime> appBinaryReplaced() const override { return std::nullopt; }
    void reloadTimelines(std::string_view) override { ++reloads; }
    int reloads = 0;
};

std::string settings(std::int64_t result) {
    const PlistDict nas{{"DestinationID", "NAS"},
                        {"NetworkURL", "smb://tm@nas.local/TimeMachine"},
                        {"RESULT", result}};
    return PlistValue(PlistDict{{"Destinations", PlistArray{nas}}, {"LastDestinationID", "NAS"}})
        .toXml();
}

std::string status(int running) {
    return PlistValue(PlistDict{{"BackupPhase", "Copying"}, {"Running", running}}).toXml();
}

class PreferencesFileTest : public ::testing::Test {
protected:
    std::unique_ptr<PreferencesFile> make(bool demo = false) {
        return std::make_unique<PreferencesFile>(PreferencesFile::Dependencies{
            file, demo, clock, watcher, tools, shared, Logger(sink, LogArea::general)});
    }
    int reads() const {
        int n = 0;
        for (const auto& line : sink.lines()) n += line.message == "Preferences stored" ? 1 : 0;
        return n;
    }
    std::optional<std::int64_t> storedResult() {
        const auto stored = shared.load();
        if (!stored || !stored->lastDestination) return std::nullopt;
        return stored->lastDestination->lastResult;
    }

    VirtualScheduler clock;
    testing::TempFolder folder;
    testing::RecordingLogSink sink;
    std::filesystem::path file = folder / "TimeMachine.plist";
    SettingsStore store{folder / "group/shared.plist", Logger(sink, LogArea::general)};
    CountingWidgets widgets;
    SharedPreferences shared{store, widgets, Logger(sink, LogArea::general)};
    FakeWatcher watcher;
    FakeTools tools{clock.mainExecutor()};
};

TEST_F(PreferencesFileTest, DemoTouchesNothing) {
    folder.write("TimeMachine.plist", settings(0));
    const auto reader = make(/*demo=*/true);
    reader->recheckAccess();
    reader->process();
    EXPECT_FALSE(watcher.watching());
    EXPECT_TRUE(watcher.watched.empty());
    EXPECT_EQ(widgets.reloads, 0);
    EXPECT_FALSE(std::filesystem::exists(store.file()));
    EXPECT_TRUE(sink.lines().empty());
}

TEST_F(PreferencesFileTest, AReadableFileIsReadAndWatchedAMissingOneClearsTheSnapshot) {
    ASSERT_TRUE(shared.store(Preferences{}));  // left from a past run
    widgets.reloads = 0;
    auto reader = make();
    EXPECT_FALSE(reader->hasAccess());
    EXPECT_EQ(store.value(keys::preferences), std::nullopt);
    EXPECT_EQ(widgets.reloads, 1);
    EXPECT_FALSE(watcher.watching());
    EXPECT_EQ(reader->accessProblem().get(), std::nullopt);

    folder.write("TimeMachine.plist", settings(19));
    reader->recheckAccess();
    EXPECT_TRUE(reader->hasAccess());
    EXPECT_EQ(reads(), 2);
    EXPECT_EQ(storedResult(), 19);
    EXPECT_TRUE(watcher.watching());
    EXPECT_EQ(watcher.watched, file);
    EXPECT_EQ(tools.statusCalls, 0) << "the first read does not ask for the running state";

    // A reader made while the file is there starts reading at once.
    reader.reset();
    EXPECT_FALSE(watcher.watching());
    reader = make();
    EXPECT_TRUE(reader->hasAccess());
    EXPECT_EQ(reads(), 3);
    EXPECT_TRUE(watcher.watching());

    std::filesystem::remove(file);
    reader->timeMachineAccessChanged();
    EXPECT_FALSE(reader->hasAccess());
    EXPECT_FALSE(watcher.watching());
    EXPECT_EQ(store.value(keys::preferences), std::nullopt);
}

TEST_F(PreferencesFileTest, AFifoOrAHostileFileInItsPlaceNeitherHangsNorLeavesASnapshot) {
    ASSERT_TRUE(shared.store(Preferences{}));
    const auto started = std::chrono::steady_clock::now();
    ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
    auto reader = make();  // an ordinary open of a FIFO waits for a writer that never comes
    EXPECT_FALSE(reader->hasAccess());
    EXPECT_EQ(store.value(keys::preferences), std::nullopt);

    std::filesystem::remove(file);
    folder.write("TimeMachine.plist", testing::deepXmlPlist(200'000));
    reader->recheckAccess();
    EXPECT_TRUE(reader->hasAccess()) << "the file can be read; it just says nothing usable";
    EXPECT_EQ(store.value(keys::preferences), std::nullopt);
    EXPECT_TRUE(sink.contains("Failed serializing preferences file"));
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(10));
}

TEST_F(PreferencesFileTest, ABurstOfChangesIsReadOnceWithTheLiveRunningState) {
    folder.write("TimeMachine.plist", settings(0));
    const auto reader = make();
    ASSERT_EQ(reads(), 1);

    folder.write("TimeMachine.plist", settings(23));
    tools.output = status(1);
    watcher.fire();
    clock.advance(0.25);
    watcher.fire();
    clock.advance(0.5);
    watcher.fire();
    clock.advance(0.25);
    watcher.fire();  // exactly a second after the one acted on: still the same burst
    clock.runPending();
    EXPECT_EQ(tools.statusCalls, 1);
    EXPECT_EQ(reads(), 2);
    EXPECT_EQ(storedResult(), 23);
    EXPECT_EQ(store.boolValue(keys::backupRunning), true);
    EXPECT_EQ(shared.load()->backupRunning, true) << "the snapshot carries the running state";

    clock.advance(0.125);
    tools.output = status(0);
    watcher.fire();
    clock.runPending();
    EXPECT_EQ(tools.statusCalls, 2);
    EXPECT_EQ(reads(), 3);
    EXPECT_EQ(shared.load()->backupRunning, false);

    // Unreadable content: the snapshot goes and the widgets hear of it.
    clock.advance(5.0);
    folder.write("TimeMachine.plist", "<plist><array/>");
    const int reloads = widgets.reloads;
    watcher.fire();
    clock.runPending();
    EXPECT_EQ(store.value(keys::preferences), std::nullopt);
    EXPECT_EQ(widgets.reloads, reloads + 1);
    EXPECT_TRUE(sink.contains("Failed serializing preferences file"));
}

TEST_F(PreferencesFileTest, TheRunningStateIsKeptWhenTheReaderIsGoneBeforeTheAnswer) {
    folder.write("TimeMachine.plist", settings(0));
    auto reader = make();
    tools.output = status(1);
    watcher.fire();
    reader.reset();
    clock.runPending();
    EXPECT_EQ(store.boolValue(keys::backupRunning), true);
    EXPECT_EQ(reads(), 1) << "no read for a reader that is gone";
}

}  // namespace
}  // namespace kestrow
