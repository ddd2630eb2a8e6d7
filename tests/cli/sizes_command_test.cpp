// `kestrow sizes` as a script runs it: the real binary on a real tree, checked against du.
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>

#include "support/atomic_file.h"
#include "support/shell_command.h"
#include "support/temp_folder.h"

namespace kestrow {
namespace {

namespace fs = std::filesystem;

struct Outcome {
    int status = -1;
    std::string out;
    std::string err;
};

class SizesCommand : public ::testing::Test {
protected:
    SizesCommand() {
        temp.write("tree/a/one", std::string(300000, '1'));
        temp.write("tree/a/b/two", std::string(700000, '2'));
        temp.write("tree/naïve café/three", std::string(200000, '3'));
        temp.write("tree/with space/four", std::string(5000, '4'));
        fs::create_hard_link(temp / "tree/a/b/two", temp / "tree/with space/two");
        fs::create_symlink(temp / "tree/a", temp / "tree/with space/to a");
    }

    Outcome run(const std::string& args, const std::string& prefix = "") const {
        const char* binary = std::getenv("KESTROW_BINARY");
        if (binary == nullptr) return {-1, "", "KESTROW_BINARY is not set"};
        const auto err = temp / "stderr.txt";
        const std::string command =
            prefix + " '" + binary + "' sizes " + args + " 2>'" + err.string() + "'";
        const auto shell = testing::runShell(command);
        Outcome result{shell.status, shell.out, ""};
        result.err = readFile(err).value_or("");
        return result;
    }

    std::string quoted(const std::string& name) const { return "'" + (temp / name).string() + "'"; }

    static std::vector<std::pair<std::string, std::int64_t>> lines(const std::string& text) {
        std::vector<std::pair<std::string, std::int64_t>> result;
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);) {
            const auto tab = line.find('\t');
            if (tab == std::string::npos) {
                ADD_FAILURE() << "not a BYTES<TAB>PATH line: " << line;
                continue;
            }
            result.emplace_back(line.substr(tab + 1), std::stoll(line.substr(0, tab)));
        }
        return result;
    }

    static std::map<std::string, std::int64_t> du(const std::string& args) {
        std::map<std::string, std::int64_t> sizes;
        for (const auto& [path, bytes] : lines(testing::runShell("du -B1 " + args).out))
            sizes[path] = bytes;
        return sizes;
    }

    testing::TempFolder temp;
};

TEST_F(SizesCommand, WrongCommandLinesAndMissingFoldersAreRefused) {
    for (const std::string& args :
         std::vector<std::string>{"", "--json", "--min-size", "--min-size ten " + quoted("tree"),
                                  "--min-size=-1 " + quoted("tree"), "--all " + quoted("tree")}) {
        const Outcome r = run(args);
        EXPECT_EQ(r.status, 2) << args;
        EXPECT_NE(r.err.find("usage: kestrow sizes"), std::string::npos) << args;
        EXPECT_EQ(r.out, "") << args;
    }
    for (const char* name : {"missing", "tree/a/one"}) {
        const Outcome r = run(quoted("tree") + " " + quoted(name));
        EXPECT_EQ(r.status, 1) << name;
        EXPECT_EQ(r.out, "") << name;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
        EXPECT_NE(r.err.find((temp / name).string()), std::string::npos) << r.err;
    }
}

TEST_F(SizesCommand, LinesAreDusFoldersOfTheMinimumInsideOutAndJsonSaysTheSame) {
    const Outcome r = run("--min-size 500000 " + quoted("tree"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    const auto printed = lines(r.out);
    const std::map<std::string, std::int64_t> expected = du("-t 500000 " + quoted("tree"));
    const std::map<std::string, std::int64_t> listed(printed.begin(), printed.end());
    EXPECT_EQ(listed, expected);
    // The tree and whichever folder du's walk meets the hard-linked file in first.
    ASSERT_GE(expected.size(), 2u);
    // Every folder comes after everything inside it.
    for (std::size_t i = 0; i < printed.size(); ++i) {
        for (std::size_t j = i + 1; j < printed.size(); ++j) {
            EXPECT_FALSE(printed[j].first.starts_with(printed[i].first + "/"))
                << printed[j].first << " after " << printed[i].first;
        }
    }

    const Outcome json = run("--json --min-size=1 " + quoted("tree") + " " + quoted("tree/a"));
    ASSERT_EQ(json.status, 0) << json.err;
    const auto document = nlohmann::json::parse(json.out, nullptr, false);
    ASSERT_FALSE(document.is_discarded()) << json.out;
    EXPECT_EQ(document["skipped"], 0);
    std::map<std::string, std::int64_t> sizes;
    for (const auto& [path, bytes] : document["sizes"].items()) sizes[path] = bytes;
    EXPECT_EQ(sizes, du(quoted("tree")));
}

TEST_F(SizesCommand, TheDefaultMinimumIsHalfAGigabyte) {
    temp.write("tree/big/placeholder", "");
    const int fd = ::open((temp / "tree/big/space").c_str(), O_WRONLY | O_CREAT, 0644);
    const bool reserved = fd >= 0 && ::posix_fallocate(fd, 0, 500'000'000) == 0;
    if (fd >= 0) ::close(fd);
    if (!reserved) GTEST_SKIP() << "cannot reserve 500 MB here";
    const Outcome r = run(quoted("tree"));
    ASSERT_EQ(r.status, 0) << r.err;
    const auto printed = lines(r.out);
    ASSERT_EQ(printed.size(), 2u) << r.out;
    EXPECT_EQ(printed[0].first, (temp / "tree/big").string());
    EXPECT_EQ(printed[1].first, (temp / "tree").string());
    EXPECT_EQ(printed[1].second, du(quoted("tree")).at((temp / "tree").string()));
}

TEST_F(SizesCommand, UnreadableFoldersAreCountedAndNoted) {
    temp.write("tree/locked/inside", std::string(600000, 'l'));
    temp.write("tree/shut/inside", std::string(600000, 's'));
    fs::permissions(temp / "tree/locked", fs::perms::none);
    fs::permissions(temp / "tree/shut", fs::perms::none);
    fs::permissions(temp.path(),
                    fs::perms::owner_all | fs::perms::others_read | fs::perms::others_exec);
    const bool canDrop = ::geteuid() != 0 || std::system("command -v setpriv >/dev/null") == 0;
    const Outcome r =
        run("--json --min-size 0 " + quoted("tree"),
            ::geteuid() == 0 ? "setpriv --reuid=65534 --regid=65534 --clear-groups" : "");
    fs::permissions(temp / "tree/locked", fs::perms::owner_all);
    fs::permissions(temp / "tree/shut", fs::perms::owner_all);
    if (!canDrop) GTEST_SKIP() << "cannot run as an unprivileged user";
    ASSERT_EQ(r.status, 0) << r.err;
    const auto document = nlohmann::json::parse(r.out, nullptr, false);
    ASSERT_FALSE(document.is_discarded()) << r.out;
    EXPECT_EQ(document["skipped"], 2);
    EXPECT_LT(document["sizes"][(temp / "tree").string()].get<std::int64_t>(), 2'000'000);
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    EXPECT_NE(r.err.find('2'), std::string::npos) << r.err;
}

}  // namespace
}  // namespace kestrow
