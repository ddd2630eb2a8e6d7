#include "ui/shares_section.h"

#include <gtest/gtest.h>

#include <QLabel>
#include <QLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>

#include "support/fake_share_control.h"
#include "ui/image_probe.h"
#include "ui/menu_window.h"

namespace kestrow {
namespace {

SMBShare share(const char* id, const char* name, ShareProtocol protocol, const char* host,
               const char* shareName) {
    SMBShare s;
    s.id = id;
    s.name = name;
    s.connectionProtocol = protocol;
    s.host = host;
    s.shareName = shareName;
    return s;
}

struct SharesMenu {
    testing::FakeShareControl control;
    VPNServicesObservable vpns{
        std::vector<VPNService>{{"vpn-1", "Office VPN", VPNConnectionState::off}}};
    MenuWindow menu{[] {}};
    SharesSection* section = nullptr;

    explicit SharesMenu(std::vector<SMBShare> shares) : control(std::move(shares)) {
        QWidget* body = menu.sectionBody(MenuSection::networkShares);
        section = new SharesSection(control, &vpns, body);
        body->layout()->addWidget(section);
    }
};

TEST(SharesSection, RowsShowStatusErrorOrVpnHintAndTheRightButton) {
    SMBShare nas = share("A", "Studio NAS", ShareProtocol::smb, "nas.local", "Projects");
    nas.status = MountStatus::mounted;
    SMBShare office =
        share("B", "Office Files", ShareProtocol::webdav, "https://files.example.com", "team");
    office.port = 8443;
    office.vpnServiceID = "vpn-1";
    office.vpnName = "Office VPN";
    SMBShare backup = share("C", "Backups", ShareProtocol::smb, "10.0.0.2", "tm");
    backup.lastError = "Host aktuell nicht erreichbar (SMB Port 445).";
    backup.vpnServiceID = "vpn-1";  // an error says more than the hint
    SharesMenu m({nas, office, backup});
    m.menu.showNear(QRect());
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&m.menu));

    EXPECT_EQ(m.section->help().text(),
              QStringLiteral("Network shares you add are mounted automatically and reconnected "
                             "after sleep or network changes."));
    EXPECT_FALSE(m.section->emptyList().isVisible());
    const auto& rows = m.section->rows();
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_EQ(rows[0].name->text(), QStringLiteral("Studio NAS"));
    EXPECT_EQ(rows[0].address->text(), QStringLiteral("smb://nas.local/Projects"));
    EXPECT_EQ(rows[0].status->text(), QStringLiteral("Connected"));
    EXPECT_FALSE(rows[0].detail->isVisible());
    EXPECT_EQ(rows[0].connect->text(), QStringLiteral("Disconnect"));

    EXPECT_EQ(rows[1].address->text(), QStringLiteral("https://files.example.com:8443/team"));
    EXPECT_EQ(rows[1].status->text(), QStringLiteral("Disconnected"));
    EXPECT_EQ(rows[1].detail->text(), QStringLiteral("Office VPN is off"));
    EXPECT_TRUE(rows[1].detail->isVisible());
    EXPECT_EQ(rows[1].connect->text(), QStringLiteral("Connect"));

    EXPECT_EQ(rows[2].detail->text(),
              QStringLiteral("Host aktuell nicht erreichbar (SMB Port 445)."));
    ASSERT_TRUE(m.menu.grab().save(testing::screenshotPath(QStringLiteral("menu_shares.png"))));
    m.menu.showWithin(QRect(1330, 0, 24, 24), QRect(0, 24, 1366, 744));
    ASSERT_TRUE(
        m.menu.grab().save(testing::screenshotPath(QStringLiteral("menu_shares_1366x768.png"))));

    // The VPN connects: the hint goes. A click mounts; connecting turns the button round.
    m.vpns.set(std::vector<VPNService>{{"vpn-1", "Office VPN", VPNConnectionState::connecting}});
    EXPECT_EQ(m.section->rows()[1].detail->text(), QStringLiteral("Office VPN is connecting…"));
    m.control.onMount = [&](const SMBShare& s) {
        m.control.setStatus(s.id, MountStatus::connecting);
    };
    m.section->rows()[1].connect->click();
    ASSERT_EQ(m.control.calls.size(), 1u);
    EXPECT_EQ(m.control.calls[0].what, "mount");
    EXPECT_EQ(m.control.calls[0].share.id, "B");
    QCoreApplication::processEvents();
    EXPECT_EQ(m.section->rows()[1].status->text(), QStringLiteral("Connecting..."));
    EXPECT_EQ(m.section->rows()[1].connect->text(), QStringLiteral("Disconnect"));
    m.section->rows()[0].connect->click();
    EXPECT_EQ(m.control.calls.back().what, "unmount");
    EXPECT_EQ(m.control.calls.back().share.id, "A");
}

TEST(SharesSection, AnEmptyListSaysWhatToDoAndAddServerOpensTheEditor) {
    SharesMenu m({});
    m.menu.showNear(QRect());
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&m.menu));
    EXPECT_TRUE(m.section->rows().empty());
    EXPECT_TRUE(m.section->emptyList().isVisible());
    EXPECT_EQ(m.section->emptyList().text(),
              QStringLiteral("Add an SMB or WebDAV share to keep it mounted automatically."));
    EXPECT_EQ(m.section->addServer().text(), QStringLiteral("Add Server…"));
    m.section->addServer().click();
    ASSERT_NE(m.section->dialog(), nullptr);
    EXPECT_EQ(m.section->dialog()->windowTitle(), QStringLiteral("Add Server"));
    m.section->dialog()->host().setText(QStringLiteral("nas"));
    m.section->dialog()->shareName().setText(QStringLiteral("media"));
    m.section->dialog()->save().click();
    ASSERT_EQ(m.section->rows().size(), 1u);
    EXPECT_FALSE(m.section->emptyList().isVisible());
    EXPECT_EQ(m.section->rows()[0].name->text(), QStringLiteral("media"));

    m.section->rows()[0].edit->click();
    QCoreApplication::processEvents();
    ASSERT_NE(m.section->dialog(), nullptr);
    EXPECT_EQ(m.section->dialog()->windowTitle(), QStringLiteral("Edit Server"));
    EXPECT_EQ(m.section->dialog()->host().text(), QStringLiteral("nas"));
}

}  // namespace
}  // namespace kestrow
