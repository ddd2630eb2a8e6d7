#include <gtest/gtest.h>

#include "backup/restic_source.h"
#include "platform/linux/qt_file_watcher.h"
#include "platform/linux/qt_main_executor.h"
#include "platform/linux/system_clock.h"
#include "support/backup_fakes.h"
#include "support/recording_log_sink.h"
#include "support/temp_folder.h"
#include "support/time_machine_fakes.h"
#include "wait_until.h"

namespace kestrow {
namespace {

// A job file edited by hand, again and again, is read each time through the real file watch, whose
// own callback replaces the watches: they must not be torn down under it.
TEST(ResticSourceWatch, FollowsTheJobsFileThroughRepeatedEditsAndTheLastJobGoing) {
    testing::TempFolder folder;
    testing::RecordingLogSink sink;
    const Logger log(sink, LogArea::general);
    SystemClock clock;
    QtMainExecutor executor;
    SettingsStore sharedStore(folder / "shared.plist", log);
    testing::RecordingWidgetHost widgets;
    SharedPreferences shared(sharedStore, widgets, log);
    testing::FakeSecretStore secrets(executor);
    testing::FakeResticCommands restic;
    QtFileWatcher watcher;
    ResticSource source({clock, executor, restic, secrets, watcher, shared, folder / "data",
                         folder / "cache", "host", [] { return std::string(); }, log, true});
    const ResticJobStore store(folder / "data");
    ASSERT_TRUE(
        store.save({{"a", "Home", (folder / "repo").string(), {"/home"}, {}, false}}).saved);
    source.start();
    ASSERT_EQ(source.jobs().size(), 1u);

    for (int round = 2; round <= 4; ++round) {
        std::vector<ResticJob> jobs;
        for (int i = 0; i < round; ++i)
            jobs.push_back({"j" + std::to_string(i),
                            "Job " + std::to_string(i),
                            (folder / ("repo" + std::to_string(i))).string(),
                            {"/home"},
                            {},
                            false});
        ASSERT_TRUE(store.save(jobs).saved);
        EXPECT_TRUE(testing::waitUntil([&] { return source.jobs().size() == jobs.size(); }))
            << "round " << round;
    }
    ASSERT_TRUE(store.save({}).saved);
    EXPECT_TRUE(testing::waitUntil([&] { return source.jobs().empty(); }));
    EXPECT_FALSE(shared.load().has_value());
}

}  // namespace
}  // namespace kestrow
