#include "insights/startup_items.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/temp_folder.h"

namespace kestrow {
namespace {

namespace fs = std::filesystem;
using kestrow::testing::TempFolder;
using Scope = StartupItem::Scope;

class StartupItemsTest : public ::testing::Test {
protected:
    StartupItemsTest() {
        UserLocations locations;
        locations.configHome = folder / "config";
        roots = StartupItems::Roots::standard(locations, folder / "root");
    }

    // A unit file in `units` enabled for `target` the way systemctl does it: a link in the
    // target's wants folder.
    fs::path enable(const fs::path& units, const std::string& name, const std::string& text,
                    const std::string& target = "default.target") const {
        fs::create_directories(units / (target + ".wants"));
        if (!fs::exists(units / name))
            folder.write((units / name).lexically_relative(folder.path()), text);
        const fs::path link = units / (target + ".wants") / name;
        fs::create_symlink(units / name, link);
        return link;
    }
    std::string autostart(const fs::path& where, const std::string& name,
                          const std::string& text) const {
        folder.write((where / name).lexically_relative(folder.path()), text);
        return (where / name).string();
    }

    TempFolder folder;
    StartupItems::Roots roots;
};

TEST_F(StartupItemsTest, ListsEnabledEntriesAndUnitsByScopeAndPath) {
    const auto sync = autostart(roots.userAutostart, "sync.desktop",
                                "[Desktop Entry]\nType=Application\nName=Sync\n"
                                "Exec=\"/opt/Sync App/sync\" --background\n");
    autostart(roots.userAutostart, "off.desktop",
              "[Desktop Entry]\nName=Off\nExec=off\nHidden=true\n");
    autostart(roots.userAutostart, "gnome-off.desktop",
              "[Desktop Entry]\nName=Gnome off\nExec=off\nX-GNOME-Autostart-enabled=false\n");
    const auto nameless =
        autostart(roots.userAutostart, "nameless.desktop", "[Desktop Entry]\nExec=\n");
    autostart(roots.userAutostart, "junk.desktop", "Exec=junk\nName=Junk\n");
    fs::create_symlink(folder / "nowhere", roots.userAutostart / "dangling.desktop");
    fs::create_directories(roots.userAutostart / "folder.desktop");

    const auto agent = enable(roots.userUnits, "agent.service",
                              "[Unit]\nDescription=Agent\n\n[Service]\n"
                              "ExecStart=-@/usr/bin/agent agent-argv0 \\\n  --verbose\n");
    // Enabled for two targets, it still starts once.
    enable(roots.userUnits, "agent.service", "", "graphical-session.target");
    enable(roots.userUnits, "reset.service",
           "[Service]\nExecStart=/usr/bin/old\nExecStart=\nExecStart=!!/usr/bin/new --flag\n",
           "graphical-session.target");
    enable(roots.userUnits, "masked.service", "");
    folder.write((roots.userUnits / "timer.timer").lexically_relative(folder.path()), "[Timer]\n");

    // The user's own entry of the same name takes the system's place.
    autostart(roots.systemAutostart, "sync.desktop", "[Desktop Entry]\nName=Sync\nExec=sync\n");
    const auto keys = autostart(roots.systemAutostart, "keys.desktop",
                                "# keyring\n[Desktop Entry]\nName=Keys\nExec=keyd --start %U\n"
                                "[Desktop Action New]\nExec=other\n");
    const auto sound = enable(roots.systemUserUnits, "sound.service",
                              "[Service]\nExecStart=+\"/usr/lib/sound daemon\" -v\n");
    enable(roots.systemUserUnits, "hushed.service", "[Service]\nExecStart=/usr/bin/hushed\n");
    fs::create_directories(roots.userUnits);
    fs::create_symlink("/dev/null", roots.userUnits / "hushed.service");

    const auto ssh = enable(roots.systemUnits, "ssh.service",
                            "[Service]\n; comment\nExecStart=/usr/sbin/sshd -D $SSHD_OPTS\n",
                            "multi-user.target");
    const auto oneshot = enable(roots.systemUnits, "oneshot.service", "[Unit]\nDescription=x\n",
                                "multi-user.target");
    enable(roots.systemUnits, "off.service", "[Service]\nExecStart=/usr/bin/off\n",
           "multi-user.target");
    fs::remove(roots.systemUnits / "off.service");
    fs::create_symlink("/dev/null", roots.systemUnits / "off.service");

    const auto reset = roots.userUnits / "graphical-session.target.wants/reset.service";
    EXPECT_EQ(StartupItems::list(roots),
              (std::vector<StartupItem>{
                  {"nameless.desktop", std::nullopt, nameless, Scope::userAgent},
                  {"Sync", "/opt/Sync App/sync", sync, Scope::userAgent},
                  {"agent.service", "/usr/bin/agent", agent.string(), Scope::userAgent},
                  {"reset.service", "/usr/bin/new", reset.string(), Scope::userAgent},
                  {"sound.service", "/usr/lib/sound daemon", sound.string(), Scope::systemAgent},
                  {"Keys", "keyd", keys, Scope::systemAgent},
                  {"oneshot.service", std::nullopt, oneshot.string(), Scope::systemDaemon},
                  {"ssh.service", "/usr/sbin/sshd", ssh.string(), Scope::systemDaemon}}));
}

TEST_F(StartupItemsTest, MissingFoldersGiveAnEmptyList) {
    EXPECT_TRUE(StartupItems::list(roots).empty());
    EXPECT_EQ(StartupItem::scopeName(Scope::systemDaemon), "systemDaemon");
}

}  // namespace
}  // namespace kestrow
