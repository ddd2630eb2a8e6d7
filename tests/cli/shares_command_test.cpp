#include "cli/shares_command.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "cli/command_context.h"
#include "shares/stored_share_control.h"
#include "support/backup_fakes.h"
#include "support/fake_share_control.h"
#include "support/temp_folder.h"
#include "support/virtual_scheduler.h"

namespace kestrow {
namespace {

using Json = nlohmann::json;

class TableOnHand final : public MountTable {
public:
    std::optional<std::vector<MountEntry>> current() override { return entries; }
    std::int64_t bootIdentity() override { return 7; }
    std::string volumesRoot() const override { return "/run/user/1000/gvfs/"; }
    std::optional<std::vector<MountEntry>> entries = std::vector<MountEntry>{};
};

std::string slurp(const std::filesystem::path& file) {
    std::ifstream in(file);
    return {std::istreambuf_iterator<char>(in), {}};
}

// The command over the shares file and a keyring that answers on the virtual main loop, as it
// runs without an agent.
struct StoredShares {
    testing::TempFolder folder;
    VirtualScheduler scheduler;
    testing::FakeSecretStore keyring{scheduler.mainExecutor()};
    ShareStore store{folder.path()};
    SharePasswords passwords{keyring};
    TableOnHand table;
    StoredShareControl control{store, passwords, table};
    std::optional<std::string> stdinLine;
    int stdinReads = 0;
    SharesCommandContext context{
        control,
        false,
        table,
        [] {
            return std::optional(
                std::vector<VPNService>{{"vpn-1", "Office VPN", VPNConnectionState::off}});
        },
        [](const SMBShare&, const std::vector<MountEntry>&) { return false; },
        [this] {
            ++stdinReads;
            return stdinLine;
        },
        [this](const std::function<bool()>& done, double) {
            scheduler.runPending();
            return done();
        },
        [this] { return control.settled(); }};
    std::ostringstream out;
    std::ostringstream err;

    int run(std::vector<std::string> args) {
        out.str({});
        err.str({});
        return runSharesCommand(args, context, out, err);
    }
};

TEST(SharesCommand, AddRefusesWhatTheEditorRefusesWithExit2AndSavesNothing) {
    StoredShares s;
    const std::vector<std::vector<std::string>> refused{
        {"add", "--protocol", "smb", "--host", "  ", "--share", "data"},
        {"add", "--protocol", "smb", "--host", "nas", "--share", " "},
        {"add", "--protocol", "smb", "--host", "nas", "--share", "data", "--port", "65536"},
        {"add", "--protocol", "smb", "--host", "nas", "--share", "data", "--port", "-0"},
        {"add", "--protocol", "smb", "--host", "nas", "--share", "data", "--port", "8o"},
        {"add", "--protocol", "ftp", "--host", "nas", "--share", "data"},
        {"add", "--host", "nas", "--share", "data"},
        // A password is never an argument.
        {"add", "--protocol", "smb", "--host", "nas", "--share", "data", "--password", "pw"},
        {"add", "--protocol", "smb", "--host", "nas", "--share"},
    };
    for (const auto& args : refused) {
        EXPECT_EQ(s.run(args), kExitUsage) << args.back();
        EXPECT_FALSE(s.err.str().empty());
    }
    s.run({"add", "--protocol", "smb", "--host", "nas", "--share", "data", "--port", "65536"});
    EXPECT_THAT(s.err.str(), ::testing::HasSubstr("1 to 65535"));
    EXPECT_FALSE(std::filesystem::exists(s.store.file()) && slurp(s.store.file()) != "[]");
    EXPECT_TRUE(s.control.shares().get().empty());
    EXPECT_TRUE(s.keyring.items.empty());
    EXPECT_EQ(s.stdinReads, 0) << "standard input is not read for a refused share";
}

TEST(SharesCommand, PasswordFromStandardInputGoesToTheKeyringOnlyNeverToTheFileOrOutput) {
    StoredShares s;
    s.stdinLine = "p&ss:w0rd-Secret";
    ASSERT_EQ(s.run({"add", "--protocol", "webdav", "--scheme", "http", "--host", " files.lan ",
                     "--share", "team", "--port", "+8080", "--user", "DOM\\ada", "--name", "Team",
                     "--no-auto-mount", "--password-stdin"}),
              kExitDone)
        << s.err.str();
    const std::string id = s.out.str().substr(0, s.out.str().size() - 1);
    ASSERT_EQ(id.size(), 36u);
    EXPECT_EQ(s.keyring.items.at(std::string(SharePasswords::kService) + "/" + id),
              "p&ss:w0rd-Secret");
    const std::string file = slurp(s.store.file());
    EXPECT_EQ(file.find("w0rd"), std::string::npos) << file;
    EXPECT_EQ(s.out.str().find("w0rd"), std::string::npos);
    EXPECT_EQ(s.err.str().find("w0rd"), std::string::npos);
    const auto saved = ShareStore::decode(file);
    ASSERT_EQ(saved.size(), 1u);
    EXPECT_EQ(saved[0].id, id);
    EXPECT_EQ(saved[0].host, "files.lan");
    EXPECT_EQ(saved[0].port, 8080);
    EXPECT_EQ(saved[0].webDAVScheme, WebDAVScheme::http);
    EXPECT_FALSE(saved[0].autoMount);

    // Asked for and not given: nothing is saved.
    s.stdinLine.reset();
    EXPECT_EQ(
        s.run({"add", "--protocol", "smb", "--host", "nas", "--share", "x", "--password-stdin"}),
        kExitFailed);
    EXPECT_EQ(ShareStore::decode(slurp(s.store.file())).size(), 1u);

    // Without a password nothing reaches the keyring; removing forgets the one stored.
    ASSERT_EQ(s.run({"add", "--protocol", "smb", "--host", "nas", "--share", "media"}), kExitDone);
    EXPECT_EQ(s.keyring.items.size(), 1u);
    EXPECT_EQ(s.run({"remove", "Team"}), kExitDone) << s.err.str();
    EXPECT_TRUE(s.keyring.items.empty());
    const auto left = ShareStore::decode(slurp(s.store.file()));
    ASSERT_EQ(left.size(), 1u);
    EXPECT_EQ(left[0].name, "media");
    EXPECT_EQ(s.run({"remove", "Team"}), kExitFailed);
}

TEST(SharesCommand, JsonListsEveryFieldWithStatusesFromTheMountTable) {
    StoredShares s;
    ASSERT_EQ(s.run({"add", "--protocol", "smb", "--host", "nas.local", "--share", "Projects",
                     "--name", "Studio NAS"}),
              kExitDone);
    SMBShare office;
    office.id = "5C1B3F9E-2A47-4D0B-9E55-7A1C2B3D4E5F";
    office.name = "Office Files";
    office.connectionProtocol = ShareProtocol::webdav;
    office.host = "files.example.com";
    office.shareName = "team";
    office.vpnServiceID = "vpn-1";
    office.vpnName = "Office VPN (old name)";
    s.control.add(office, "");
    s.table.entries =
        std::vector<MountEntry>{{"smbfs", "//nas/projects", 0,
                                 "/run/user/1000/gvfs/smb-share:server=nas,share=projects", 42}};

    ASSERT_EQ(s.run({"--json"}), kExitDone) << s.err.str();
    const Json doc = Json::parse(s.out.str());
    ASSERT_TRUE(doc.is_array());
    ASSERT_EQ(doc.size(), 2u);
    std::vector<std::string> keys;
    for (const auto& [key, value] : doc[0].items()) keys.push_back(key);
    EXPECT_THAT(keys, ::testing::UnorderedElementsAre("id", "name", "protocol", "url", "autoMount",
                                                      "status", "lastError", "lastConnected",
                                                      "mountedAt", "owned", "vpn", "hint"));
    EXPECT_EQ(doc[0]["protocol"], "SMB");
    EXPECT_EQ(doc[0]["url"], "smb://nas.local/Projects");
    EXPECT_EQ(doc[0]["status"], "Connected");
    EXPECT_EQ(doc[0]["mountedAt"], "/run/user/1000/gvfs/smb-share:server=nas,share=projects");
    EXPECT_EQ(doc[0]["owned"], false);
    EXPECT_TRUE(doc[0]["vpn"].is_null());
    EXPECT_TRUE(doc[0]["hint"].is_null());
    EXPECT_TRUE(doc[0]["lastConnected"].is_null());
    EXPECT_EQ(doc[1]["protocol"], "WebDAV");
    EXPECT_EQ(doc[1]["url"], "https://files.example.com/team");
    EXPECT_EQ(doc[1]["status"], "Disconnected");
    EXPECT_TRUE(doc[1]["mountedAt"].is_null());
    EXPECT_EQ(doc[1]["vpn"], (Json{{"id", "vpn-1"}, {"name", "Office VPN"}, {"state", "off"}}));
    EXPECT_EQ(doc[1]["hint"], "Office VPN is off");

    // Unreadable table: nothing is claimed to be mounted.
    s.table.entries.reset();
    ASSERT_EQ(s.run({"--json"}), kExitDone);
    EXPECT_EQ(Json::parse(s.out.str())[0]["status"], "Disconnected");
    EXPECT_EQ(s.run({"--verbose"}), kExitUsage);
}

TEST(SharesCommand, MountWaitsForTheOutcomeAndUnmountLeftAloneExits1WithTheReason) {
    testing::FakeShareControl control;
    SMBShare nas;
    nas.id = "A";
    nas.name = "Studio NAS";
    nas.host = "nas";
    nas.shareName = "projects";
    control.list.set({nas});
    TableOnHand table;
    VirtualScheduler scheduler;
    bool owned = false;
    SharesCommandContext context{
        control,
        true,
        table,
        [] { return std::optional<std::vector<VPNService>>(); },
        [&](const SMBShare&, const std::vector<MountEntry>&) { return owned; },
        [] { return std::optional<std::string>(); },
        [&](const std::function<bool()>& done, double seconds) {
            for (double waited = 0; waited <= seconds && !done(); waited += 0.5)
                scheduler.advance(0.5);
            return done();
        }};
    std::ostringstream out;
    std::ostringstream err;

    // Connecting, then connected two seconds later.
    control.onMount = [&](const SMBShare& s) {
        control.setStatus(s.id, MountStatus::connecting);
        scheduler.mainExecutor().postAfter(
            2.0, [&, id = s.id] { control.setStatus(id, MountStatus::mounted); });
    };
    EXPECT_EQ(runSharesCommand({"mount", "Studio NAS", "--wait"}, context, out, err), kExitDone);
    EXPECT_EQ(out.str(), "Studio NAS: Connected\n");

    // It fails: exit 1 with the manager's words.
    control.onMount = [&](const SMBShare& s) {
        control.setStatus(s.id, MountStatus::connecting);
        scheduler.mainExecutor().postAfter(1.0, [&, id = s.id] {
            control.setStatus(id, MountStatus::disconnected,
                              "Host aktuell nicht erreichbar (SMB Port 445).");
        });
    };
    err.str({});
    EXPECT_EQ(runSharesCommand({"mount", "A", "--wait"}, context, out, err), kExitFailed);
    EXPECT_EQ(err.str(), "kestrow shares mount: Host aktuell nicht erreichbar (SMB Port 445).\n");

    // Mounted by someone else: left alone, and the reason in Linux words.
    table.entries = std::vector<MountEntry>{{"cifs", "//nas/projects", 0, "/mnt/projects", 9}};
    control.setStatus("A", MountStatus::mounted);
    control.onUnmount = [&](const SMBShare& s) {
        control.setStatus(s.id, MountStatus::mounted,
                          "Connected by another app, or before this update — left alone. Eject "
                          "it in Finder to disconnect.");
    };
    err.str({});
    EXPECT_EQ(runSharesCommand({"unmount", "A"}, context, out, err), kExitFailed);
    EXPECT_EQ(err.str(),
              "kestrow shares unmount: Connected by another app, or before this update — left "
              "alone. Eject it in Files to disconnect.\n");

    // Kestrow's own: disconnected when the manager says so.
    owned = true;
    control.onUnmount = [&](const SMBShare& s) {
        scheduler.mainExecutor().postAfter(
            0.3, [&, id = s.id] { control.setStatus(id, MountStatus::disconnected); });
    };
    out.str({});
    EXPECT_EQ(runSharesCommand({"unmount", "A"}, context, out, err), kExitDone);
    EXPECT_EQ(out.str(), "Studio NAS: Disconnected\n");
    EXPECT_EQ(runSharesCommand({"unmount", "nobody"}, context, out, err), kExitFailed);
}

}  // namespace
}  // namespace kestrow
