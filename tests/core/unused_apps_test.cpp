#include "insights/unused_apps.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/iso_date.h"
#include "support/temp_folder.h"

namespace kestrow {
namespace {

namespace fs = std::filesystem;
using kestrow::testing::TempFolder;

constexpr double kDay = 86'400.0;

class UnusedAppsTest : public ::testing::Test {
protected:
    const WallTime now = *parseIsoDate("2025-03-01T12:00:00Z");

    std::string daysAgo(double days) const { return formatIsoDate(addSeconds(now, -days * kDay)); }

    UnusedApps::Sources sources() const {
        return {{folder / "home/applications", folder / "system/applications"},
                folder / "home/recently-used.xbel"};
    }
    std::string app(const std::string& where, const std::string& name, const std::string& exec,
                    const std::string& extra = "") const {
        const std::string file = where + "/applications/" + name + ".desktop";
        folder.write(file, "[Desktop Entry]\nType=Application\nName=" + name + "\nExec=" + exec +
                               "\n" + extra);
        return (folder / file).string();
    }
    // One bookmark per use, as GTK writes them.
    void recentlyUsed(const std::vector<std::pair<std::string, std::string>>& uses) const {
        std::string xbel =
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<xbel version=\"1.0\"\n"
            "      xmlns:bookmark=\"http://www.freedesktop.org/standards/desktop-bookmarks\"\n"
            "      xmlns:mime=\"http://www.freedesktop.org/standards/shared-mime-info\"\n>\n";
        for (const auto& [exec, modified] : uses) {
            xbel += "  <bookmark href=\"file:///home/ana/notes.txt\" added=\"" + modified +
                    "\" modified=\"" + modified + "\" visited=\"" + modified +
                    "\">\n    <info>\n      <metadata owner=\"http://freedesktop.org\">\n"
                    "        <mime:mime-type type=\"text/plain\"/>\n"
                    "        <bookmark:applications>\n"
                    "          <bookmark:application name=\"app\" exec=\"" +
                    exec + "\" modified=\"" + modified +
                    "\" count=\"2\"/>\n        </bookmark:applications>\n      </metadata>\n"
                    "    </info>\n  </bookmark>\n";
        }
        folder.write("home/recently-used.xbel", xbel + "</xbel>\n");
    }

    TempFolder folder;
};

TEST_F(UnusedAppsTest, ListsWhatWasLastOpenedAtLeast180DaysAgoAndNeverWhatIsUnknown) {
    const auto exactly = app("home", "Editor", "/usr/bin/gedit %U");
    app("home", "Viewer", "eog %U");
    const auto older = app("system", "Painter", "\"/opt/paint/bin/krita\" %f");
    app("system", "Terminal", "xterm");
    recentlyUsed({{"&apos;gedit %u&apos;", daysAgo(180)},
                  {"&apos;eog %u&apos;", daysAgo(179.9)},
                  {"&apos;krita %f&apos;", daysAgo(400)},
                  // An older use of the editor changes nothing: the newest counts.
                  {"&apos;gedit %u&apos;", daysAgo(500)}});

    const auto all = UnusedApps::applications(sources());
    ASSERT_EQ(all.size(), 4u);
    EXPECT_EQ(all[3].lastUsed, std::nullopt) << "the terminal opened no file: not known";
    EXPECT_EQ(UnusedApps::unused(all, now),
              (std::vector<AppUsage>{{older, parseIsoDate(daysAgo(400))},
                                     {exactly, parseIsoDate(daysAgo(180))}}));
}

TEST_F(UnusedAppsTest, LeavesOutHiddenEntriesAndShadowedOnesAndSharedLaunchers) {
    app("home", "Hidden", "gimp %U", "Hidden=true\n");
    app("system", "Hidden", "gimp %U");  // the user's hidden copy of the same name wins
    app("system", "Settings", "settings-panel", "NoDisplay=true\n");
    folder.write("system/applications/site.desktop",
                 "[Desktop Entry]\nType=Link\nName=Site\nURL=https://example.org\n");
    app("system", "One", "flatpak run org.example.One %U");
    app("system", "Two", "flatpak run org.example.Two %U");
    app("system", "kde/Kate", "kate %U");
    folder.write("system/applications/broken.desktop", "Exec=broken\n");
    fs::create_symlink(folder / "nowhere.desktop", folder / "system/applications/dangling.desktop");
    recentlyUsed({{"&apos;gimp %u&apos;", daysAgo(300)},
                  {"&apos;flatpak run org.example.One %u&apos;", daysAgo(300)},
                  {"&apos;kate %u&apos;", daysAgo(300)}});

    const auto all = UnusedApps::applications(sources());
    std::vector<std::string> paths;
    for (const auto& usage : all) paths.push_back(fs::path(usage.path).filename().string());
    EXPECT_EQ(paths, (std::vector<std::string>{"One.desktop", "Two.desktop", "Kate.desktop"}));
    // Two entries start flatpak: a use of one cannot be told from a use of the other.
    EXPECT_EQ(all[0].lastUsed, std::nullopt);
    EXPECT_EQ(all[1].lastUsed, std::nullopt);
    EXPECT_EQ(all[2].lastUsed, parseIsoDate(daysAgo(300)));
}

TEST(UnusedAppsRecords, OddAndBrokenRecordsArePassedOver) {
    const auto uses = UnusedApps::lastUses(
        "<bookmark:applications>"  // not an application record
        "<bookmark:application name='a' exec='\"/usr/bin/alpha\" %F' "
        "modified='2024-05-01T10:00:00.5Z'/>"
        "<bookmark:application exec=\"&apos;beta %u&apos;\" timestamp=\"1700000000\"/>"
        "<bookmark:application exec=\"gamma\" modified=\"yesterday\"/>"
        "<bookmark:application exec=\"delta\"/>"
        "<bookmark:application name=\"no-exec\" modified=\"2024-05-01T10:00:00Z\"/>"
        "<bookmark:application exec=\"&apos;%u&apos;\" modified=\"2024-05-01T10:00:00Z\"/>"
        "<bookmark:application exec=\"epsilon\" modified=\"2024-05-01T10:00:00Z\" broken=/>"
        "<bookmark:application exec=\"zeta &#x26; more\" modified=\"2024-06-01T00:00:00Z\"/>"
        "\x01\xff garbage <<>> &bogus; <bookmark:application exec=\"eta\" modified=\"2024-0");
    EXPECT_EQ(uses, (std::map<std::string, WallTime, std::less<>>{
                        {"alpha", *parseIsoDate("2024-05-01T10:00:00.5Z")},
                        {"beta", WallTime(std::chrono::seconds(1'700'000'000))},
                        {"epsilon", *parseIsoDate("2024-05-01T10:00:00Z")},
                        {"zeta", *parseIsoDate("2024-06-01T00:00:00Z")}}));
    EXPECT_TRUE(UnusedApps::lastUses("").empty());
    EXPECT_TRUE(UnusedApps::lastUses("<bookmark:application exec=\"x\" modified=\"").empty());
}

TEST(UnusedAppsSources, FollowTheDataFoldersInOrderAndSkipRelativeOnes) {
    TempFolder home;
    auto sources = UnusedApps::Sources::standard(
        home.homeEnvironment({{"XDG_DATA_DIRS", "/opt/share:relative/share::/usr/share"}}));
    EXPECT_EQ(sources.applicationFolders,
              (std::vector<fs::path>{home / ".local/share/applications", "/opt/share/applications",
                                     "/usr/share/applications"}));
    EXPECT_EQ(sources.recentlyUsed, home / ".local/share/recently-used.xbel");
    sources = UnusedApps::Sources::standard(home.homeEnvironment());
    EXPECT_EQ(sources.applicationFolders,
              (std::vector<fs::path>{home / ".local/share/applications",
                                     "/usr/local/share/applications", "/usr/share/applications"}));
}

}  // namespace
}  // namespace kestrow
