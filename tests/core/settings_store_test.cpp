#include "app/settings/settings_store.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <map>
#include <thread>
#include <vector>

#include "app/settings/settings_catalog.h"
#include "app/settings/settings_keys.h"
#include "support/atomic_file.h"
#include "support/deep_documents.h"
#include "support/nesting_depth.h"
#include "support/recording_log_sink.h"
#include "support/temp_folder.h"
#include "support/unprivileged_child.h"

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

// Every file in the settings folder but the store itself, with what it holds.
std::map<std::string, std::string> setAside(const std::filesystem::path& folder) {
    std::map<std::string, std::string> out;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        const std::string name = entry.path().filename().string();
        if (name == "settings.plist") continue;
        out[name] = entry.is_regular_file() ? readFile(entry.path()).value_or("?") : "(not a file)";
    }
    return out;
}

TEST_F(SettingsStoreTest, BadFilesReadAsNothingStoredAndTheNextWriteSetsThemAsideWhole) {
    EXPECT_TRUE(store.contents().empty());  // no file yet
    const std::string good = PlistValue(PlistDict{{"keep", PlistValue(true)}}).toXml();
    folder.write("kestrow/settings.plist", "");
    EXPECT_TRUE(store.contents().empty());
    EXPECT_EQ(store.set("fresh", PlistValue(1)), StoreWrite::changed);
    EXPECT_TRUE(setAside(file.parent_path()).empty()) << "an empty file holds nothing to keep";

    int expectedAside = 0;
    for (const std::string& bad :
         {good.substr(0, good.size() / 2), PlistValue(PlistArray{PlistValue(1)}).toXml(),
          std::string("\x89PNG\r\n\x1a\n"), testing::deepXmlPlist(200'000),
          testing::deepBinaryPlist(200'000)}) {
        folder.write("kestrow/settings.plist", bad);
        // Files written in the same second get the same stamp, so each is dated apart.
        std::filesystem::last_write_time(file, std::filesystem::file_time_type::clock::now() -
                                                   std::chrono::hours(++expectedAside));
        EXPECT_TRUE(store.contents().empty()) << bad.substr(0, 60);
        EXPECT_EQ(store.set("fresh", PlistValue(1)), StoreWrite::changed);
        const auto reread = PlistValue::parse(*readFile(file));
        ASSERT_TRUE(reread && reread->asDict());
        EXPECT_EQ(reread->asDict()->size(), 1u);
        EXPECT_EQ(*reread->find("fresh")->asInteger(), 1);
        // Kept byte for byte beside the store, named as unreadable and dated.
        const auto aside = setAside(file.parent_path());
        ASSERT_EQ(aside.size(), static_cast<std::size_t>(expectedAside));
        bool found = false;
        for (const auto& [name, content] : aside) {
            EXPECT_TRUE(name.starts_with("settings.plist.unreadable-")) << name;
            found = found || content == bad;
        }
        EXPECT_TRUE(found) << bad.substr(0, 60);
    }
    EXPECT_TRUE(sink.contains("is unreadable"));
    EXPECT_TRUE(sink.contains("set it aside as " + file.string() + ".unreadable-"));
}

TEST_F(SettingsStoreTest, TheAgentSetsAHostileFileAsideAtOnceAndStartsFromDefaults) {
    const auto started = std::chrono::steady_clock::now();
    folder.write("kestrow/settings.plist", testing::deepXmlPlist(200'000));
    std::filesystem::last_write_time(file, std::filesystem::file_time_type::clock::now());
    SettingsStore agent(file, Logger(sink, LogArea::general),
                        SettingsStore::OnUnreadable::setAside);
    EXPECT_FALSE(std::filesystem::exists(file));
    ASSERT_EQ(setAside(file.parent_path()).size(), 1u);
    EXPECT_EQ(setAside(file.parent_path()).begin()->second, testing::deepXmlPlist(200'000));
    EXPECT_TRUE(agent.contents().empty());
    EXPECT_EQ(agent.set("k", PlistValue(true)), StoreWrite::changed);
    EXPECT_EQ(agent.boolValue("k"), true);

    // A FIFO or a device node in the file's place is never opened for reading, so nothing
    // waits for a writer that never comes; it is moved aside like any unreadable file.
    std::filesystem::remove(file);
    ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
    EXPECT_TRUE(store.contents().empty());
    EXPECT_EQ(store.set("after", PlistValue(2)), StoreWrite::changed);
    EXPECT_EQ(store.integerValue("after"), 2);
    std::size_t fifos = 0;
    for (const auto& entry : std::filesystem::directory_iterator(file.parent_path()))
        fifos += entry.is_fifo() ? 1u : 0u;
    EXPECT_EQ(fifos, 1u);
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(10));

    // A readable file stays where it is.
    SettingsStore again(file, Logger(sink, LogArea::general),
                        SettingsStore::OnUnreadable::setAside);
    EXPECT_EQ(again.integerValue("after"), 2);
}

TEST_F(SettingsStoreTest, AFolderThatCannotBeLockedRefusesTheWriteAndSaysWhy) {
    store.set("before", PlistValue(1));
    const std::string written = *readFile(file);
    // Writable and searchable but not readable: the folder cannot be opened to lock it.
    std::filesystem::permissions(file.parent_path(), std::filesystem::perms::owner_write |
                                                         std::filesystem::perms::owner_exec |
                                                         std::filesystem::perms::others_write |
                                                         std::filesystem::perms::others_exec);
    std::filesystem::permissions(file, std::filesystem::perms::all);
    const auto result = testing::unprivileged(folder, [&] {
        testing::RecordingLogSink childSink;
        SettingsStore child(file, Logger(childSink, LogArea::general));
        const StoreWrite write = child.set("after", PlistValue(2));
        return std::to_string(static_cast<int>(write)) + "|" +
               (childSink.contains(
                    "Failed writing setting after: cannot lock the settings folder " +
                    file.parent_path().string() + ": Permission denied")
                    ? "said why"
                    : "silent");
    });
    std::filesystem::permissions(file.parent_path(), std::filesystem::perms::owner_all);
    if (!result) GTEST_SKIP() << "could not run a child as an unprivileged user (uid 65534)";
    EXPECT_EQ(*result, std::to_string(static_cast<int>(StoreWrite::failed)) + "|said why");
    EXPECT_EQ(*readFile(file), written);
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

namespace kestrow {
namespace {

TEST(SettingsCatalog, JsonNestedBeyondTheLimitIsRefusedOnTheWayInAndShownAsAbsent) {
    const SettingDescriptor* preferences = findSetting(keys::preferences);
    const SettingDescriptor* folders = findSetting(keys::duplicateFinderFolders);
    ASSERT_TRUE(preferences && folders);
    // `settings set` takes JSON text and writes it back with a writer that recurses per level.
    EXPECT_TRUE(parseSettingValue(*preferences, testing::deepJson(kMaxNestingDepth)));
    EXPECT_FALSE(parseSettingValue(*preferences, testing::deepJson(kMaxNestingDepth + 1)));
    EXPECT_FALSE(parseSettingValue(*preferences, testing::deepJson(200'000)));
    EXPECT_FALSE(parseSettingValue(*folders, testing::deepJson(200'000)));

    // A stored value that deep (written by hand or by another program) is shown as absent.
    testing::TempFolder folder;
    testing::RecordingLogSink sink;
    SettingsStore store(folder / "shared.plist", Logger(sink, LogArea::general));
    const std::string deep = testing::deepJson(200'000);
    ASSERT_EQ(store.set(keys::preferences, PlistValue(PlistData(deep.begin(), deep.end()))),
              StoreWrite::changed);
    const nlohmann::json shown = effectiveValue(*preferences, store);
    EXPECT_TRUE(shown.is_null());
    EXPECT_EQ(shown.dump(), "null");
}

}  // namespace
}  // namespace kestrow
