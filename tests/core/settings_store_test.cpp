#include "app/settings/settings_store.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <thread>
#include <vector>

#include "support/atomic_file.h"
#include "support/recording_log_sink.h"
#include "support/temp_folder.h"

namespace kestrow {
namespace {

class SettingsStoreTest : public ::testing::Test {
protected:
    testing::TempFolder folder;
    testing::RecordingLogSink sink;
    std::filesystem::path file = folder / "kestrow/settings.plist";
    SettingsStore store{file, Logger(sink, LogArea::general)};

    ino_t inode() const {
        struct stat info {};
        ::stat(file.c_str(), &info);
        return info.st_ino;
    }
};

TEST_F(SettingsStoreTest, BadFilesReadAsNothingStoredAndTheNextWriteReplacesThem) {
    EXPECT_TRUE(store.contents().empty());  // no file yet
    const std::string good = PlistValue(PlistDict{{"keep", PlistValue(true)}}).toXml();
    for (const std::string& bad :
         {std::string(), good.substr(0, good.size() / 2),
          PlistValue(PlistArray{PlistValue(1)}).toXml(), std::string("\x89PNG\r\n\x1a\n")}) {
        folder.write("kestrow/settings.plist", bad);
        EXPECT_TRUE(store.contents().empty()) << bad;
        EXPECT_EQ(store.set("fresh", PlistValue(1)), StoreWrite::changed);
        const auto reread = PlistValue::parse(*readFile(file));
        ASSERT_TRUE(reread && reread->asDict());
        EXPECT_EQ(reread->asDict()->size(), 1u);
        EXPECT_EQ(*reread->find("fresh")->asInteger(), 1);
    }
    EXPECT_TRUE(sink.contains("is unreadable"));
}

TEST_F(SettingsStoreTest, TypedReadsGiveNothingForAnotherType) {
    store.set("b", PlistValue(true));
    store.set("i", PlistValue(3));
    store.set("r", PlistValue(2.5));
    store.set("whole", PlistValue(4.0));
    store.set("s", PlistValue("text"));
    EXPECT_EQ(store.boolValue("b"), true);
    EXPECT_FALSE(store.boolValue("i"));  // an integer is not a bool
    EXPECT_FALSE(store.boolValue("s"));
    EXPECT_FALSE(store.integerValue("b"));
    EXPECT_FALSE(store.integerValue("r"));
    EXPECT_EQ(store.integerValue("whole"), 4);
    EXPECT_EQ(store.realValue("i"), 3.0);  // a number is a number
    EXPECT_FALSE(store.realValue("s"));
    EXPECT_FALSE(store.stringValue("i"));
    EXPECT_FALSE(store.dateValue("s"));
    EXPECT_FALSE(store.dictValue("s"));
    EXPECT_FALSE(store.boolValue("missing"));
}

TEST_F(SettingsStoreTest, OptionalBoolsAndUnchangedWrites) {
    EXPECT_EQ(store.setOptionalBool("reachable", std::nullopt), StoreWrite::unchanged);
    EXPECT_FALSE(std::filesystem::exists(file)) << "a write that changes nothing touches nothing";
    EXPECT_EQ(store.setOptionalBool("reachable", false), StoreWrite::changed);
    EXPECT_EQ(store.boolValue("reachable"), false);  // false is kept apart from "not known"
    const ino_t written = inode();
    EXPECT_EQ(store.setOptionalBool("reachable", false), StoreWrite::unchanged);
    EXPECT_EQ(inode(), written) << "an unchanged value is not rewritten";
    EXPECT_EQ(store.setOptionalBool("reachable", std::nullopt), StoreWrite::changed);
    EXPECT_FALSE(store.value("reachable"));
    EXPECT_EQ(store.remove("reachable"), StoreWrite::unchanged);
}

TEST_F(SettingsStoreTest, SeesWritesOfOtherStoresOnTheSameFileAndLosesNoneUnderContention) {
    SettingsStore other(file, Logger(sink, LogArea::general));
    other.set("fromOther", PlistValue("yes"));
    EXPECT_EQ(store.stringValue("fromOther"), "yes");

    std::vector<std::thread> writers;
    for (int t = 0; t < 4; ++t) {
        writers.emplace_back([&, t] {
            SettingsStore& target = t % 2 == 0 ? store : other;
            for (int i = 0; i < 10; ++i)
                target.set("k" + std::to_string(t) + "_" + std::to_string(i), PlistValue(i));
        });
    }
    for (auto& writer : writers) writer.join();
    EXPECT_EQ(store.contents().size(), 41u);
}

TEST_F(SettingsStoreTest, AFailedWriteLeavesThePreviousFileWhole) {
    store.set("good", PlistValue("value"));
    const std::string before = *readFile(file);

    // Root ignores permissions, so make the disk "full" with a file-size limit instead.
    struct rlimit saved {};
    ::getrlimit(RLIMIT_FSIZE, &saved);
    const auto previousHandler = std::signal(SIGXFSZ, SIG_IGN);
    struct rlimit tiny = saved;
    tiny.rlim_cur = 64;
    ::setrlimit(RLIMIT_FSIZE, &tiny);
    const StoreWrite result = store.set("big", PlistValue(std::string(10000, 'x')));
    ::setrlimit(RLIMIT_FSIZE, &saved);
    std::signal(SIGXFSZ, previousHandler);

    EXPECT_EQ(result, StoreWrite::failed);
    EXPECT_EQ(*readFile(file), before);
    EXPECT_FALSE(store.value("big"));
    EXPECT_TRUE(sink.contains("Failed writing setting big"));
    for (const auto& entry : std::filesystem::directory_iterator(file.parent_path())) {
        EXPECT_EQ(entry.path(), file) << "no temporary file is left behind";
    }
}

}  // namespace
}  // namespace kestrow
