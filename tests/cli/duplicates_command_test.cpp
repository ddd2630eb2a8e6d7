// `kestrow duplicates` as a process on a temporary home: what it prints where, and what it moves
// to the real Trash.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <cstdio>
#include <fstream>
#include <random>

#include "support/iso_date.h"
#include "support/shell_command.h"
#include "support/temp_folder.h"

namespace kestrow {
namespace {

namespace fs = std::filesystem;

class DuplicatesCommand : public ::testing::Test {
protected:
    struct Output {
        std::string out;
        std::string err;
        int status = -1;
    };

    Output run(const std::string& args) const {
        const char* binary = std::getenv("KESTROW_BINARY");
        if (binary == nullptr) return {"KESTROW_BINARY is not set", "", -1};
        const fs::path errFile = home / "stderr.txt";
        const std::string command = "cd '" + home.path().string() + "' && env -i HOME='" +
                                    home.path().string() + "' XDG_CONFIG_HOME='" +
                                    (home / ".config").string() + "' XDG_DATA_HOME='" +
                                    (home / ".local/share").string() + "' '" + binary +
                                    "' duplicates " + args + " 2>'" + errFile.string() + "'";
        const auto shell = testing::runShell(command);
        Output result{shell.out, "", shell.status};
        std::ifstream in(errFile);
        result.err.assign(std::istreambuf_iterator<char>(in), {});
        return result;
    }
    void write(const std::string& name, std::size_t size, unsigned seed) const {
        std::mt19937 random(seed);
        std::string bytes(size, '\0');
        for (auto& c : bytes) c = static_cast<char>(random() & 0xFFU);
        home.write(name, bytes);
    }
    std::string path(const std::string& name) const { return (home / name).string(); }

    testing::TempFolder home;
};

TEST_F(DuplicatesCommand, PrintsGroupsForScriptsAndJsonWithTheGains) {
    write("Documents/report.pdf", 2'000'000, 1);
    write("Downloads/report.pdf", 2'000'000, 1);
    write("Desktop/report copy.pdf", 2'000'000, 1);
    write("Downloads/setup.iso", 1'500'000, 2);
    write("Music/setup.iso", 1'500'000, 2);
    write("Downloads/Tool.app/Contents/report.pdf", 2'000'000, 1);

    const Output plain = run("");
    EXPECT_EQ(plain.status, 0);
    EXPECT_EQ(plain.out, path("Desktop/report copy.pdf") + "\n" + path("Documents/report.pdf") +
                             "\n" + path("Downloads/report.pdf") + "\n\n")
        << "Music is not searched until it is added";
    EXPECT_EQ(plain.err, "1 group of duplicates \u00b7 4 MB to gain\n");

    ASSERT_EQ(run("").status, 0);
    const auto doc = nlohmann::json::parse(run("--json Downloads Music").out, nullptr, false);
    ASSERT_TRUE(doc.is_object());
    EXPECT_EQ(doc["roots"], nlohmann::json({path("Downloads"), path("Music")}));
    EXPECT_EQ(doc["skippedFolders"], 0);
    ASSERT_EQ(doc["groups"].size(), 1U);
    const auto& group = doc["groups"][0];
    EXPECT_EQ(group["size"], 1'500'000);
    EXPECT_EQ(group["files"][0]["path"], path("Downloads/setup.iso"));
    EXPECT_EQ(group["files"][1]["path"], path("Music/setup.iso"));
    EXPECT_EQ(group["files"][0]["size"], 1'500'000);
    EXPECT_GE(group["files"][0]["privateSize"].get<std::int64_t>(), 1'500'000);
    EXPECT_EQ(group["reclaimable"], group["files"][1]["privateSize"]);
    EXPECT_EQ(doc["totalGain"], group["reclaimable"]);
    EXPECT_TRUE(parseIsoDate(group["files"][0]["modified"].get<std::string>()).has_value());

    EXPECT_EQ(run("--json Nowhere").status, 1);
    EXPECT_EQ(run("--frobnicate").status, 2);
    EXPECT_EQ(run("--trash").status, 2) << "nothing named";
}

TEST_F(DuplicatesCommand, TrashMovesNamedCopiesButNeverTheLastOne) {
    write("Documents/report.pdf", 2'000'000, 1);
    write("Downloads/report.pdf", 2'000'000, 1);
    write("Desktop/notes.txt", 1'200'000, 3);

    const Output all = run("--trash Downloads/report.pdf '" + path("Documents/report.pdf") +
                           "' Desktop/notes.txt");
    EXPECT_EQ(all.status, 0);
    EXPECT_EQ(all.out, "Moved 1 file to the Trash; 1 couldn't be moved\n  " +
                           path("Desktop/notes.txt") + ": no copy of it was found\n");
    EXPECT_TRUE(fs::exists(home / "Documents/report.pdf")) << "the filed copy stays";
    EXPECT_FALSE(fs::exists(home / "Downloads/report.pdf"));
    EXPECT_TRUE(fs::exists(home / ".local/share/Trash/files/report.pdf"));
    EXPECT_TRUE(fs::exists(home / "Desktop/notes.txt"));

    const auto again = nlohmann::json::parse(run("--trash --json Documents/report.pdf").out);
    EXPECT_EQ(again["moved"], nlohmann::json::array()) << "no copy is left beside it";
    EXPECT_TRUE(fs::exists(home / "Documents/report.pdf"));
}

// A named path means what the kernel makes of it (`link/..` is the folder above the link's
// target), and the twins of a named copy are looked for in every standard folder, not only in
// the one that holds it.
TEST_F(DuplicatesCommand, TrashTakesPathsAsTheKernelDoesAndFindsTwinsInEveryFolder) {
    write("Documents/sub/photo.jpg", 3'000'000, 4);
    write("Downloads/photo.jpg", 3'000'000, 4);
    fs::create_directories(home / "Documents/sub/deeper");
    fs::create_directory_symlink(home / "Documents/sub/deeper", home / "Downloads/link");

    const Output moved = run("--trash --json Downloads/link/../photo.jpg");
    EXPECT_EQ(moved.status, 0) << moved.err;
    const auto report = nlohmann::json::parse(moved.out, nullptr, false);
    EXPECT_EQ(report["moved"], nlohmann::json({path("Documents/sub/photo.jpg")}));
    EXPECT_FALSE(fs::exists(home / "Documents/sub/photo.jpg"));
    EXPECT_TRUE(fs::exists(home / "Downloads/photo.jpg"));

    // Both Downloads copies are named; their twin in Documents is the one that stays.
    write("Documents/tax.pdf", 1'500'000, 5);
    write("Downloads/tax.pdf", 1'500'000, 5);
    write("Downloads/tax (1).pdf", 1'500'000, 5);
    const Output both = run("--trash Downloads/tax.pdf 'Downloads/tax (1).pdf'");
    EXPECT_EQ(both.out, "Moved 2 files to the Trash\n");
    EXPECT_TRUE(fs::exists(home / "Documents/tax.pdf"));
    EXPECT_FALSE(fs::exists(home / "Downloads/tax.pdf"));
    EXPECT_FALSE(fs::exists(home / "Downloads/tax (1).pdf"));

    // A copy in the Trash is no copy: the last one outside stays.
    const Output last = run("--trash Documents/tax.pdf");
    EXPECT_EQ(last.out, "Nothing moved to the Trash; 1 couldn't be moved\n  " +
                            path("Documents/tax.pdf") + ": no copy of it was found\n");
    EXPECT_TRUE(fs::exists(home / "Documents/tax.pdf"));
    EXPECT_EQ(run("Nothing/..").status, 1) << "not a folder once the kernel resolves it";
}

}  // namespace
}  // namespace kestrow
