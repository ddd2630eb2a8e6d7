#include "ui/share_editor_dialog.h"

#include <gtest/gtest.h>

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>

#include "support/fake_share_control.h"
#include "ui/image_probe.h"

namespace kestrow {
namespace {

SMBShare storedShare() {
    SMBShare share;
    share.id = "5C1B3F9E-2A47-4D0B-9E55-7A1C2B3D4E5F";
    share.name = "Office Files";
    share.connectionProtocol = ShareProtocol::webdav;
    share.webDAVScheme = WebDAVScheme::http;
    share.host = "files.example.com";
    share.port = 8080;
    share.shareName = "team";
    share.username = "ada";
    share.mountPoint = "/run/user/1000/gvfs/dav:host=files.example.com,port=8080,ssl=false";
    share.vpnServiceID = "gone-uuid";
    share.vpnName = "Old VPN";
    return share;
}

TEST(ShareEditorDialog, SaveFollowsTheRulesAndHandsTheRecordAndPasswordToTheManager) {
    testing::FakeShareControl control;
    VPNServicesObservable vpns(
        std::vector<VPNService>{{"u1", "Office VPN", VPNConnectionState::off}});
    ShareEditorDialog dialog(control, &vpns);
    dialog.present();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&dialog));

    EXPECT_EQ(dialog.protocol().itemText(0), QStringLiteral("SMB"));
    EXPECT_EQ(dialog.protocol().itemText(1), QStringLiteral("WebDAV"));
    EXPECT_EQ(dialog.scheme().itemText(0), QStringLiteral("HTTPS"));
    EXPECT_FALSE(dialog.scheme().isVisible()) << "SMB has no scheme";
    EXPECT_EQ(dialog.host().placeholderText(), QStringLiteral("192.168.1.100 or server.local"));
    EXPECT_EQ(dialog.name().placeholderText(), QStringLiteral("My Network Drive"));
    EXPECT_EQ(dialog.username().placeholderText(), QStringLiteral("domain\\user or user"));
    EXPECT_EQ(dialog.passwordNote().text(),
              QStringLiteral("The password is securely stored in the keyring."));
    EXPECT_EQ(dialog.autoMount().text(),
              QStringLiteral("Automatically connect and reconnect on disconnect"));
    EXPECT_EQ(
        dialog.vpnHelp().text(),
        QStringLiteral("Used only to explain a stalled connection and retry when it connects."));
    EXPECT_EQ(dialog.password().echoMode(), QLineEdit::Password);
    EXPECT_FALSE(dialog.remove().isVisible()) << "nothing to remove yet";

    EXPECT_FALSE(dialog.save().isEnabled());
    QTest::keyClicks(&dialog.host(), QStringLiteral("  nas.local "));
    EXPECT_FALSE(dialog.save().isEnabled()) << "no share name yet";
    QTest::keyClicks(&dialog.shareName(), QStringLiteral("   "));
    EXPECT_FALSE(dialog.save().isEnabled()) << "a blank share name is none";
    dialog.shareName().setText(QStringLiteral("Projects"));
    EXPECT_TRUE(dialog.save().isEnabled());
    for (const char* bad : {"65536", "-0", "8o"}) {
        dialog.port().setText(QString::fromLatin1(bad));
        EXPECT_FALSE(dialog.save().isEnabled()) << bad;
    }
    dialog.port().setText(QStringLiteral("+1445"));
    EXPECT_TRUE(dialog.save().isEnabled());

    QTest::keyClicks(&dialog.username(), QStringLiteral("ada"));
    QTest::keyClicks(&dialog.password(), QStringLiteral("s3cret&pw"));
    EXPECT_EQ(dialog.preview().text(), QStringLiteral("smb://ada@nas.local:+1445/Projects"));
    EXPECT_FALSE(testing::visibleTexts(dialog).join(' ').contains(QStringLiteral("s3cret")));

    dialog.protocol().setCurrentIndex(1);
    EXPECT_TRUE(dialog.scheme().isVisible());
    EXPECT_TRUE(dialog.preview().text().startsWith(QStringLiteral("https://")));
    dialog.vpn().setCurrentIndex(1);
    ASSERT_TRUE(dialog.grab().save(testing::screenshotPath(QStringLiteral("share_editor.png"))));

    dialog.save().click();
    ASSERT_EQ(control.calls.size(), 1u);
    const auto& call = control.calls[0];
    EXPECT_EQ(call.what, "add");
    EXPECT_EQ(call.password, "s3cret&pw");
    EXPECT_EQ(call.share.host, "nas.local");
    EXPECT_EQ(call.share.port, 1445);
    EXPECT_EQ(call.share.connectionProtocol, ShareProtocol::webdav);
    EXPECT_EQ(call.share.vpnServiceID, "u1");
    EXPECT_EQ(call.share.vpnName, "Office VPN");
    EXPECT_FALSE(call.share.id.empty());
    EXPECT_EQ(dialog.result(), QDialog::Accepted);
    EXPECT_TRUE(dialog.password().text().isEmpty()) << "the password does not stay behind";
}

TEST(ShareEditorDialog, AnEditWithAnEmptyPasswordKeepsTheStoredOneAndRemoveAsksFirst) {
    const SMBShare stored = storedShare();
    testing::FakeShareControl control({stored});
    VPNServicesObservable vpns(std::vector<VPNService>{});
    {
        ShareEditorDialog dialog(control, &vpns, stored);
        dialog.present();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&dialog));
        EXPECT_EQ(dialog.port().text(), QStringLiteral("8080"));
        EXPECT_EQ(dialog.scheme().currentText(), QStringLiteral("HTTP"));
        EXPECT_EQ(dialog.vpn().currentText(), QStringLiteral("Old VPN (not configured)"));
        // The system's list changes while the editor is open: the choice stays.
        vpns.set(std::vector<VPNService>{{"x", "Home VPN", VPNConnectionState::off}});
        EXPECT_EQ(dialog.vpn().currentText(), QStringLiteral("Old VPN (not configured)"));
        dialog.name().setText(QStringLiteral("Team Files"));
        dialog.save().click();
    }
    ASSERT_EQ(control.calls.size(), 1u);
    EXPECT_EQ(control.calls[0].what, "update");
    EXPECT_EQ(control.calls[0].password, "") << "empty: the manager keeps the stored password";
    SMBShare expected = stored;
    expected.name = "Team Files";
    EXPECT_EQ(control.calls[0].share, expected) << "everything else is the record as it was";

    ShareEditorDialog dialog(control, &vpns, control.list.get()[0]);
    int asked = 0;
    bool answer = false;
    dialog.setRemoveConfirmation([&](const RemoveShareQuestion& question, QWidget*) {
        ++asked;
        EXPECT_EQ(question.title, "Remove “Team Files”?");
        return answer;
    });
    dialog.present();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&dialog));
    dialog.remove().click();
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(control.calls.size(), 1u) << "declined: nothing removed";
    EXPECT_TRUE(dialog.isVisible());
    answer = true;
    dialog.remove().click();
    ASSERT_EQ(control.calls.size(), 2u);
    EXPECT_EQ(control.calls[1].what, "remove");
    EXPECT_EQ(control.calls[1].share.id, stored.id);
    EXPECT_TRUE(control.list.get().empty());
}

}  // namespace
}  // namespace kestrow
