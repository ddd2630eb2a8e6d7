#include "shares/share_editor_rules.h"

#include <gtest/gtest.h>

#include "support/wording.h"

namespace kestrow {
namespace {

ShareForm filled() {
    ShareForm form;
    form.host = "nas.local";
    form.shareName = "Projects";
    return form;
}

TEST(ShareEditorRules, PortFieldAcceptsOnlyWholeNumbersInRangeWithAnOptionalSign) {
    EXPECT_EQ(portFromField(""), 0);
    EXPECT_EQ(portFromField("   "), 0);
    EXPECT_EQ(portFromField("+1"), 1);
    EXPECT_EQ(portFromField(" 80 "), 80);
    EXPECT_EQ(portFromField("65535"), 65535);
    EXPECT_EQ(portFromField("0445"), 445);
    for (const char* refused : {"-0", "0", "65536", "8o", "-1", "+", "-", "+-1", "1.0", "1 2",
                                "99999999999999999999999", "0x50", "８０"})
        EXPECT_EQ(portFromField(refused), std::nullopt) << refused;
}

TEST(ShareEditorRules, SaveNeedsATrimmedHostAndShareNameAndAValidPort) {
    EXPECT_TRUE(canSave(filled()));

    ShareForm form = filled();
    form.host = " \t ";
    EXPECT_EQ(shareFormProblem(form), ShareFormProblem::noHost);
    form = filled();
    form.shareName = "  ";
    EXPECT_EQ(shareFormProblem(form), ShareFormProblem::noShareName);
    form = filled();
    form.portText = "65536";
    EXPECT_EQ(shareFormProblem(form), ShareFormProblem::badPort);
    form.portText = " 8443 ";
    EXPECT_TRUE(canSave(form));
    // Each refusal can be told to someone on the command line.
    for (auto problem :
         {ShareFormProblem::noHost, ShareFormProblem::noShareName, ShareFormProblem::badPort})
        EXPECT_FALSE(problemSentence(problem).empty());
}

TEST(ShareEditorRules, ARecordKeepsItsIdOnEditAndANewOneGetsAFreshId) {
    ShareForm form = filled();
    form.host = "  nas.local ";
    form.shareName = " Projects ";
    form.username = " DOM\\ada ";
    form.portText = "+445";
    const SMBShare fresh = shareRecord(form);
    EXPECT_EQ(fresh.id.size(), 36u);
    EXPECT_NE(shareRecord(form).id, fresh.id);
    EXPECT_EQ(fresh.host, "nas.local");
    EXPECT_EQ(fresh.shareName, "Projects");
    EXPECT_EQ(fresh.username, "DOM\\ada");
    EXPECT_EQ(fresh.port, 445);
    EXPECT_EQ(fresh.name, "Projects") << "a blank name is the share's name";
    EXPECT_EQ(fresh.status, MountStatus::disconnected);

    SMBShare stored = fresh;
    stored.name = "Studio";
    stored.mountPoint = "/run/user/1000/gvfs/smb-share:server=nas.local,share=projects";
    stored.port = 0;
    stored.vpnServiceID = "uuid-1";
    stored.vpnName = "Office VPN";
    ShareForm edit = ShareForm::forShare(stored);
    EXPECT_EQ(edit.portText, "") << "the default port shows as an empty field";
    edit.name = "Studio NAS";
    edit.vpnServiceID.reset();
    const SMBShare edited = shareRecord(edit);
    EXPECT_EQ(edited.id, stored.id);
    EXPECT_EQ(edited.mountPoint, stored.mountPoint);
    EXPECT_EQ(edited.name, "Studio NAS");
    EXPECT_EQ(edited.port, 0);
    EXPECT_FALSE(edited.vpnServiceID);
    EXPECT_FALSE(edited.vpnName) << "no saved name stays behind without its link";
}

TEST(ShareEditorRules, PreviewShowsUserHostTypedPortAndShare) {
    ShareForm form = filled();
    form.username = "ada";
    form.portText = " 1445 ";
    EXPECT_EQ(formPreview(form), "smb://ada@nas.local:1445/Projects");
    form.protocol = ShareProtocol::webdav;
    form.scheme = WebDAVScheme::http;
    form.username = "";
    form.portText = "";
    EXPECT_EQ(formPreview(form), "http://nas.local/Projects");
}

TEST(ShareEditorRules, VpnChoicesKeepALinkTheSystemNoLongerHasOrCannotSay) {
    const std::vector<VPNService> services{{"a", "Home VPN", VPNConnectionState::off},
                                           {"b", "Office VPN", VPNConnectionState::connected}};
    ShareForm form = filled();
    auto choices = vpnChoices(services, form);
    ASSERT_EQ(choices.size(), 2u);
    EXPECT_EQ(choices[0].label, "Home VPN");

    form.vpnServiceID = "gone";
    form.vpnName = "Old VPN";
    choices = vpnChoices(services, form);
    ASSERT_EQ(choices.size(), 3u);
    EXPECT_EQ(choices[2].id, "gone");
    EXPECT_EQ(choices[2].name, "Old VPN");
    EXPECT_EQ(choices[2].label, "Old VPN (not configured)");

    // The system's services unreadable: the link is still there to keep.
    choices = vpnChoices(std::nullopt, form);
    ASSERT_EQ(choices.size(), 1u);
    EXPECT_EQ(choices[0].id, "gone");
    EXPECT_EQ(choices[0].label, "Old VPN");
    EXPECT_TRUE(vpnChoices(std::nullopt, filled()).empty());
}

TEST(ShareEditorRules, TheKeychainSentenceSpeaksOfTheKeyringOnLinux) {
    EXPECT_EQ(Wording::linux(std::nullopt)(ShareEditorText::kPasswordNote),
              "The password is securely stored in the keyring.");
    EXPECT_EQ(Wording::exact()(ShareEditorText::kPasswordNote),
              "The password is securely stored in the macOS Keychain.");
    using namespace ShareEditorText;
    for (const char* text :
         {kCredentialsHeading, kPasswordNote, kHostPlaceholder, kNamePlaceholder, kUserPlaceholder,
          kAutoMount, kVpnHelp, kNotConfigured, kEmptyList, kSectionHelp}) {
        const std::string shown = Wording::linux(std::nullopt)(text);
        for (const char* macWord : {"Mac", "Keychain", "Finder", "System Settings"})
            EXPECT_EQ(shown.find(macWord), std::string::npos) << shown;
    }
}

}  // namespace
}  // namespace kestrow
