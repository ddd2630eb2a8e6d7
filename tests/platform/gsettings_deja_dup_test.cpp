#include "platform/linux/backup/gsettings_deja_dup.h"

#include <gio/gio.h>

#include <QProcess>
#include <QStandardPaths>

#include <gtest/gtest.h>

#include <fstream>

#include "support/temp_folder.h"
#include "wait_until.h"

namespace kestrow {
namespace {

// Our own schema under Déjà Dup's ids, with the keys Kestrow reads plus one it does not. Two
// things an older or newer Déjà Dup could have are here on purpose: "periodic-period" of another
// type, and no "tool" key and no cloud children at all.
constexpr const char* kSchema = R"(<?xml version="1.0" encoding="UTF-8"?>
<schemalist>
  <schema id="org.gnome.DejaDup" path="/org/gnome/deja-dup/">
    <key name="last-backup" type="s"><default>''</default></key>
    <key name="last-run" type="s"><default>''</default></key>
    <key name="periodic" type="b"><default>false</default></key>
    <key name="periodic-period" type="s"><default>'weekly'</default></key>
    <key name="backend" type="s"><default>'auto'</default></key>
    <key name="window-width" type="i"><default>700</default></key>
    <child name="drive" schema="org.gnome.DejaDup.Drive"/>
    <child name="remote" schema="org.gnome.DejaDup.Remote"/>
  </schema>
  <schema id="org.gnome.DejaDup.Drive" path="/org/gnome/deja-dup/drive/">
    <key name="uuid" type="s"><default>''</default></key>
    <key name="name" type="s"><default>''</default></key>
    <key name="folder" type="s"><default>'$HOSTNAME'</default></key>
  </schema>
  <schema id="org.gnome.DejaDup.Remote">
    <key name="uri" type="s"><default>''</default></key>
    <key name="folder" type="s"><default>'$HOSTNAME'</default></key>
  </schema>
</schemalist>
)";

constexpr const char* kOtherSchema = R"(<?xml version="1.0" encoding="UTF-8"?>
<schemalist>
  <schema id="org.example.Unrelated" path="/org/example/unrelated/">
    <key name="on" type="b"><default>false</default></key>
  </schema>
</schemalist>
)";

class GSettingsDejaDupTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (QStandardPaths::findExecutable("glib-compile-schemas").isEmpty())
            GTEST_SKIP() << "glib-compile-schemas is not installed";
        // Writing below must never reach the desktop's real settings.
        GSettings* probe = writer(compile("guard", kOtherSchema), "org.example.Unrelated", nullptr);
        GObject* backend = nullptr;
        g_object_get(probe, "backend", &backend, nullptr);
        ASSERT_NE(backend, nullptr);
        const std::string kind =
            g_type_name_from_instance(reinterpret_cast<GTypeInstance*>(backend));
        g_object_unref(backend);
        ASSERT_EQ(kind, "GMemorySettingsBackend");
    }

    std::filesystem::path compile(const std::string& name, const char* xml) {
        const auto dir = folder / name;
        std::filesystem::create_directories(dir);
        std::ofstream(dir / "test.gschema.xml") << xml;
        const int status =
            QProcess::execute("glib-compile-schemas", {QString::fromStdString(dir.string())});
        EXPECT_EQ(status, 0);
        return dir;
    }

    // A writer of our own on the same schemas, as Déjà Dup would write.
    GSettings* writer(const std::filesystem::path& dir, const char* id, const char* path) {
        GSettingsSchemaSource* source =
            g_settings_schema_source_new_from_directory(dir.c_str(), nullptr, FALSE, nullptr);
        EXPECT_NE(source, nullptr);
        GSettingsSchema* schema = g_settings_schema_source_lookup(source, id, FALSE);
        EXPECT_NE(schema, nullptr);
        GSettings* settings = g_settings_new_full(schema, nullptr, path);
        writers.emplace_back(settings, schema);
        g_settings_schema_source_unref(source);
        return settings;
    }

    // The memory store lives as long as the process: every key goes back to its default, so
    // the next test starts from an untouched Déjà Dup whatever this one left.
    void TearDown() override {
        for (const auto& [settings, schema] : writers) {
            gchar** keys = g_settings_schema_list_keys(schema);
            for (gchar** key = keys; *key != nullptr; ++key) g_settings_reset(settings, *key);
            g_strfreev(keys);
            g_settings_schema_unref(schema);
            g_object_unref(settings);
        }
    }

    testing::TempFolder folder;
    std::vector<std::pair<GSettings*, GSettingsSchema*>> writers;
};

TEST_F(GSettingsDejaDupTest, NothingWhenTheSchemaIsNotInstalled) {
    GSettingsDejaDup missing(compile("other", kOtherSchema));
    EXPECT_EQ(missing.read(), std::nullopt);
    EXPECT_EQ(missing.watch([] {}), nullptr);

    GSettingsDejaDup noFolder(folder / "no-such-folder");
    EXPECT_EQ(noFolder.read(), std::nullopt);
    EXPECT_EQ(noFolder.watch([] {}), nullptr);
}

TEST_F(GSettingsDejaDupTest, ReadsTheKeysAndTheLocationsAndKeepsDefaultsForWhatIsMissing) {
    const auto dir = compile("deja-dup", kSchema);
    GSettingsDejaDup reader(dir);
    const auto untouched = reader.read();
    ASSERT_TRUE(untouched);
    EXPECT_FALSE(untouched->configured());
    EXPECT_EQ(untouched->backend, "auto");
    EXPECT_EQ(untouched->driveFolder, "$HOSTNAME");
    EXPECT_FALSE(untouched->hostName.empty());

    GSettings* main = writer(dir, GSettingsDejaDup::kSchemaId, nullptr);
    GSettings* drive = writer(dir, "org.gnome.DejaDup.Drive", nullptr);
    GSettings* remote = writer(dir, "org.gnome.DejaDup.Remote", "/org/gnome/deja-dup/remote/");
    ASSERT_TRUE(g_settings_set_string(main, "last-backup", "2026-11-20T08:00:00.123456Z"));
    ASSERT_TRUE(g_settings_set_string(main, "last-run", "2026-11-21T09:00:00+01"));
    ASSERT_TRUE(g_settings_set_boolean(main, "periodic", TRUE));
    ASSERT_TRUE(g_settings_set_string(main, "periodic-period", "daily"));
    ASSERT_TRUE(g_settings_set_string(main, "backend", "drive"));
    ASSERT_TRUE(g_settings_set_string(drive, "uuid", "7c1e-55aa"));
    ASSERT_TRUE(g_settings_set_string(drive, "name", "Backup Disk"));
    ASSERT_TRUE(g_settings_set_string(drive, "folder", "kestrow-test"));
    ASSERT_TRUE(g_settings_set_string(remote, "uri", "smb://nas.local/share"));

    const auto read = reader.read();
    ASSERT_TRUE(read);
    EXPECT_EQ(read->lastBackup, "2026-11-20T08:00:00.123456Z");
    EXPECT_EQ(read->lastRun, "2026-11-21T09:00:00+01");
    EXPECT_TRUE(read->periodic);
    EXPECT_EQ(read->periodicPeriod, 7) << "a key of another type reads as the default";
    EXPECT_EQ(read->tool, "duplicity") << "a missing key reads as the default";
    EXPECT_EQ(read->backend, "drive");
    EXPECT_EQ(read->driveUuid, "7c1e-55aa");
    EXPECT_EQ(read->driveName, "Backup Disk");
    EXPECT_EQ(read->driveFolder, "kestrow-test");
    EXPECT_EQ(read->remoteUri, "smb://nas.local/share") << "a child without its own path";
    EXPECT_EQ(read->googleFolder, "$HOSTNAME") << "a child that is not installed";

    const Preferences preferences = read->preferences();
    ASSERT_TRUE(preferences.lastDestination);
    EXPECT_EQ(preferences.lastDestination->volumeName, "Backup Disk");
    EXPECT_EQ(preferences.lastDestination->attempts.size(), 2U);
}

TEST_F(GSettingsDejaDupTest, AChangeToAnyKeyIsAnnouncedUntilTheWatchGoes) {
    const auto dir = compile("deja-dup", kSchema);
    GSettingsDejaDup reader(dir);
    GSettings* main = writer(dir, GSettingsDejaDup::kSchemaId, nullptr);
    GSettings* drive = writer(dir, "org.gnome.DejaDup.Drive", nullptr);

    int calls = 0;
    auto watch = reader.watch([&calls] { ++calls; });
    ASSERT_NE(watch, nullptr);

    ASSERT_TRUE(g_settings_set_string(main, "last-backup", "2026-11-22T08:00:00Z"));
    EXPECT_TRUE(testing::waitUntil([&calls] { return calls > 0; }));
    EXPECT_EQ(reader.read()->lastBackup, "2026-11-22T08:00:00Z");

    const int before = calls;
    ASSERT_TRUE(g_settings_set_string(drive, "name", "Other Disk"));
    EXPECT_TRUE(testing::waitUntil([&] { return calls > before; })) << "a location's key";

    watch.reset();
    const int after = calls;
    ASSERT_TRUE(g_settings_set_string(main, "last-backup", "2026-11-23T08:00:00Z"));
    QTest::qWait(100);
    EXPECT_EQ(calls, after);
    EXPECT_EQ(reader.read()->lastBackup, "2026-11-23T08:00:00Z");
}

}  // namespace
}  // namespace kestrow
