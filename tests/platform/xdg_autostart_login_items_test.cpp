#include "platform/linux/xdg_autostart_login_items.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "support/atomic_file.h"

namespace kestrow {
namespace {

class XdgAutostartLoginItemsTest : public ::testing::Test {
protected:
    std::filesystem::path root() const { return folder_.path().toStdString(); }
    std::filesystem::path entry() const { return root() / "config/autostart/kestrow.desktop"; }
    void writeEntry(const std::string& text) const {
        std::filesystem::create_directories(entry().parent_path());
        std::ofstream(entry(), std::ios::binary) << text;
    }
    std::string entryText() const { return readFile(entry()).value_or("<missing>"); }

    QTemporaryDir folder_;
};

TEST_F(XdgAutostartLoginItemsTest, EnablingWritesAnEntryThatStartsTheExecutableQuoted) {
    const std::filesystem::path executable = "/opt/Kestrow Apps/bin/kestrow";
    XdgAutostartLoginItems items(entry(), executable);
    EXPECT_FALSE(items.isEnabled());

    EXPECT_EQ(items.setEnabled(true), std::nullopt);
    EXPECT_TRUE(items.isEnabled());
    const std::string text = entryText();
    EXPECT_EQ(text.rfind("[Desktop Entry]\n", 0), 0u) << text;
    for (const char* line : {"\nType=Application\n", "\nName=Kestrow\n", "\nComment=",
                             "\nExec=\"/opt/Kestrow Apps/bin/kestrow\" --login-item\n",
                             "\nX-GNOME-Autostart-enabled=true\n", "\nNoDisplay=false\n"}) {
        EXPECT_NE(text.find(line), std::string::npos) << line << " in\n" << text;
    }
    EXPECT_EQ(text.find("Hidden"), std::string::npos);

    // Another program's view of the same entry: it does not start that program.
    EXPECT_FALSE(XdgAutostartLoginItems(entry(), "/usr/bin/kestrow").isEnabled());
}

TEST_F(XdgAutostartLoginItemsTest, AwkwardExecutablePathsSurviveTheRoundTrip) {
    for (const std::string path :
         {R"(/tmp/a "quoted" dir/kestrow)", R"(/tmp/$HOME/`tick`/kestrow)",
          R"(/tmp/back\slash/kestrow)", "/tmp/100%/kestrow", "/tmp/tab\there/kestrow"}) {
        XdgAutostartLoginItems items(entry(), path);
        ASSERT_EQ(items.setEnabled(true), std::nullopt) << path;
        EXPECT_TRUE(items.isEnabled()) << path << "\n" << entryText();
        EXPECT_FALSE(XdgAutostartLoginItems(entry(), "/tmp/other/kestrow").isEnabled()) << path;
    }
    // A literal backslash in a quoted argument is written as four.
    XdgAutostartLoginItems(entry(), R"(/tmp/back\slash/kestrow)").setEnabled(true);
    EXPECT_NE(entryText().find(R"(Exec="/tmp/back\\\\slash/kestrow" --login-item)"),
              std::string::npos)
        << entryText();
}

TEST_F(XdgAutostartLoginItemsTest, DisablingRewritesTheEntryHiddenAndKeepsTheFile) {
    XdgAutostartLoginItems items(entry(), "/usr/bin/kestrow");
    ASSERT_EQ(items.setEnabled(true), std::nullopt);
    EXPECT_EQ(items.setEnabled(false), std::nullopt);
    EXPECT_FALSE(items.isEnabled());
    EXPECT_TRUE(std::filesystem::exists(entry()));
    EXPECT_NE(entryText().find("\nHidden=true\n"), std::string::npos) << entryText();
    EXPECT_NE(entryText().find("\nExec=\"/usr/bin/kestrow\" --login-item\n"), std::string::npos);

    // Turning it off without an entry still leaves a hidden one, which also overrides an entry
    // of the same name installed for all users.
    std::filesystem::remove(entry());
    EXPECT_EQ(items.setEnabled(false), std::nullopt);
    EXPECT_NE(entryText().find("\nHidden=true\n"), std::string::npos) << entryText();
    EXPECT_FALSE(items.isEnabled());

    ASSERT_EQ(items.setEnabled(true), std::nullopt);
    EXPECT_TRUE(items.isEnabled());
}

TEST_F(XdgAutostartLoginItemsTest, HandEditedAndForeignEntriesAreReadAsTheyAre) {
    XdgAutostartLoginItems items(entry(), "/usr/bin/kestrow");
    const auto enabledWith = [&](const std::string& text) {
        writeEntry(text);
        return items.isEnabled();
    };
    // Unquoted, with comments, blank lines, spaces around '=' and a second group.
    EXPECT_TRUE(enabledWith(
        "# mine\n\n[Desktop Entry]\nType=Application\nExec = /usr/bin/kestrow --login-item\n"
        "[Desktop Action Other]\nHidden=true\n"));
    EXPECT_FALSE(
        enabledWith("[Desktop Entry]\nExec=\"/usr/bin/kestrow\" --login-item\nHidden=true\n"));
    EXPECT_FALSE(enabledWith(
        "[Desktop Entry]\nExec=/usr/bin/kestrow --login-item\nX-GNOME-Autostart-enabled=false\n"));
    EXPECT_FALSE(enabledWith("[Desktop Entry]\nExec=/usr/bin/other-agent --login-item\n"));
    EXPECT_FALSE(enabledWith("[Desktop Entry]\nName=Kestrow\n"));  // no Exec
    EXPECT_FALSE(enabledWith("Exec=/usr/bin/kestrow\n"));          // no group
    EXPECT_FALSE(enabledWith("[Desktop Entry]\nExec=\"/usr/bin/kestrow --login-item\n"));
    EXPECT_FALSE(enabledWith(std::string("\x7f\x45LF\0\x01garbage\n", 14)));
    EXPECT_FALSE(enabledWith(""));

    // Whatever was there, turning it on replaces it with a working entry.
    EXPECT_EQ(items.setEnabled(true), std::nullopt);
    EXPECT_TRUE(items.isEnabled());
}

TEST_F(XdgAutostartLoginItemsTest, AFolderThatCannotBeCreatedGivesAReadableError) {
    // A regular file where the autostart folder's parent should be.
    std::ofstream(root() / "config") << "not a folder";
    XdgAutostartLoginItems items(entry(), "/usr/bin/kestrow");

    const auto error = items.setEnabled(true);
    ASSERT_TRUE(error.has_value());
    EXPECT_NE(error->find("start at login"), std::string::npos) << *error;
    EXPECT_NE(error->find((root() / "config").string()), std::string::npos) << *error;
    EXPECT_FALSE(items.isEnabled());
    EXPECT_TRUE(items.setEnabled(false).has_value());
}

}  // namespace
}  // namespace kestrow
