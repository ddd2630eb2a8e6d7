#include "backup/restic_job_store.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>

#include "support/atomic_file.h"
#include "support/temp_folder.h"

namespace kestrow {
namespace {

namespace fs = std::filesystem;
using testing::TempFolder;

TEST(ResticJobStore, KeepsEveryJobItCanReadFromAHandEditedFile) {
    // Unknown keys, wrong types, a job without a repository, one without an id, one that is
    // not an object and a repeated id, all in one file edited by hand.
    const auto reading = ResticJobStore::parse(R"({
      "jobs": [
        {"id": "a1", "name": "Home", "repository": "/media/ann/USB/restic",
         "paths": ["/home/ann", 7, ""], "excludes": "not a list", "automatic": "yes",
         "colour": "blue"},
        {"id": "b2", "name": "Photos", "paths": ["/home/ann/Pictures"]},
        {"name": "NoId", "repository": "/srv/r"},
        42,
        {"id": "a1", "name": "Again", "repository": "/srv/again"},
        {"id": "c3", "name": "Server", "repository": "sftp:ann@nas:/r", "automatic": false}
      ],
      "future": {"nested": [1, 2, 3]}
    })");
    EXPECT_FALSE(reading.unreadable);
    ASSERT_EQ(reading.jobs.size(), 2u);
    EXPECT_EQ(reading.jobs[0].id, "a1");
    EXPECT_EQ(reading.jobs[0].paths, std::vector<std::string>{"/home/ann"});
    EXPECT_TRUE(reading.jobs[0].excludes.empty());
    EXPECT_TRUE(reading.jobs[0].automatic);  // a wrong type takes the default
    EXPECT_EQ(reading.jobs[1].id, "c3");
    EXPECT_FALSE(reading.jobs[1].automatic);
    // Each problem is reported, naming the job where it has a name.
    const std::string all = [&] {
        std::string text;
        for (const auto& line : reading.skipped) text += line + "\n";
        return text;
    }();
    EXPECT_NE(all.find("job \"Photos\" has no repository"), std::string::npos) << all;
    EXPECT_NE(all.find("job \"NoId\" has no id"), std::string::npos) << all;
    EXPECT_NE(all.find("job 4 is not an object"), std::string::npos) << all;
    EXPECT_NE(all.find("job \"Again\" repeats the id"), std::string::npos) << all;
    EXPECT_NE(all.find("\"excludes\" is not a list"), std::string::npos) << all;
    EXPECT_NE(all.find("\"automatic\" is not true or false"), std::string::npos) << all;

    // A bare list is read too; an empty object is no jobs, not an unreadable file.
    EXPECT_EQ(ResticJobStore::parse(R"([{"id":"x","name":"X","repository":"/r"}])").jobs.size(),
              1u);
    EXPECT_FALSE(ResticJobStore::parse("{}").unreadable);
    EXPECT_TRUE(ResticJobStore::parse(R"({"jobs": {"id": "x"}})").unreadable);
    EXPECT_TRUE(ResticJobStore::parse("{\"jobs\": [").unreadable);
    EXPECT_TRUE(ResticJobStore::parse(std::string(100000, '[')).unreadable);
}

TEST(ResticJobStore, SavesAtomicallyAndSetsAnUnreadableFileAsideInsteadOfOverwritingIt) {
    TempFolder folder;
    const ResticJobStore store(folder / "backups");
    EXPECT_TRUE(store.load().jobs.empty());
    EXPECT_FALSE(store.load().unreadable);  // no file yet is not a problem

    ResticJob job{"id1", "Home", "/media/ann/USB/restic", {"/home/ann"}, {"/home/ann/.cache"},
                  false};
    const auto saved = store.save({job});
    ASSERT_TRUE(saved.saved) << saved.error;
    EXPECT_FALSE(saved.setAside);
    const auto back = store.load();
    ASSERT_EQ(back.jobs.size(), 1u);
    EXPECT_EQ(back.jobs[0], job);

    // A hand-edit gone wrong: the file is kept, byte for byte, beside the new one.
    const std::string broken = "{\"jobs\": [ {\"id\": \"id1\", \"name\": \"Home\",";
    ASSERT_TRUE(writeFileAtomically(store.file(), broken));
    const auto reading = store.load();
    EXPECT_TRUE(reading.unreadable);
    EXPECT_TRUE(reading.jobs.empty());
    EXPECT_EQ(readFile(store.file()), broken);  // reading never moves or rewrites it

    const auto replaced = store.save({job});
    ASSERT_TRUE(replaced.saved) << replaced.error;
    ASSERT_TRUE(replaced.setAside);
    EXPECT_NE(replaced.setAside->filename().string().find("jobs.json.unreadable-"),
              std::string::npos);
    EXPECT_EQ(readFile(*replaced.setAside), broken);
    EXPECT_EQ(store.load().jobs.size(), 1u);
}

TEST(ResticJobStore, DefaultsLeaveOutCachesTrashAndKestrowsOwnDataAndKeepWhatWasGiven) {
    const auto filled =
        ResticJobStore::withDefaults(ResticJob{"i", "n", "/r", {}, {}, true}, "/home/ann",
                                     "/home/ann/.local/share", "/home/ann/.cache");
    EXPECT_EQ(filled.paths, std::vector<std::string>{"/home/ann"});
    const std::set<std::string> excludes(filled.excludes.begin(), filled.excludes.end());
    EXPECT_TRUE(excludes.contains("/home/ann/.cache"));
    EXPECT_TRUE(excludes.contains("/home/ann/.local/share/Trash"));
    EXPECT_TRUE(excludes.contains(".Trash-*"));
    EXPECT_TRUE(excludes.contains("/home/ann/.local/share/kestrow"));

    const auto given = ResticJobStore::withDefaults(
        ResticJob{"i", "n", "/r", {"/srv"}, {"*.iso"}, true}, "/home/ann", "/d", "/c");
    EXPECT_EQ(given.paths, std::vector<std::string>{"/srv"});
    EXPECT_EQ(given.excludes, std::vector<std::string>{"*.iso"});

    // Ids are unique and never empty.
    std::set<std::string> ids;
    for (int i = 0; i < 100; ++i) ids.insert(ResticJobStore::makeId());
    EXPECT_EQ(ids.size(), 100u);
    EXPECT_GE(ids.begin()->size(), 16u);
}

TEST(ResticJobStore, RefusesJobsThatCannotRunWithASentence) {
    TempFolder folder;
    const std::string here = folder.path().string();
    const ResticJob good{"new", "Home", "/r", {here}, {}, true};
    const std::vector<ResticJob> kept{{"old", "Photos", "/p", {here}, {}, true}};
    EXPECT_FALSE(ResticJobStore::validate(good, kept));

    auto check = [&](ResticJob job, const std::string& expected) {
        const auto sentence = ResticJobStore::validate(job, kept);
        ASSERT_TRUE(sentence) << expected;
        EXPECT_EQ(*sentence, expected);
    };
    check({"new", " ", "/r", {here}, {}, true}, "The backup needs a name.");
    check({"new", "Photos", "/r", {here}, {}, true}, "A backup named \"Photos\" already exists.");
    check({"new", "Home", "", {here}, {}, true}, "The backup needs a repository to back up to.");
    check({"new", "Home", "/r", {"Documents"}, {}, true},
          "\"Documents\" is not a full path; it must start with /.");
    check({"new", "Home", "/r", {here + "/gone"}, {}, true},
          "\"" + here + "/gone\" does not exist.");
    // Editing a job keeps its own name.
    EXPECT_FALSE(ResticJobStore::validate({"old", "Photos", "/p2", {here}, {}, true}, kept));
}

}  // namespace
}  // namespace kestrow
