#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "shares/share_store.h"
#include "support/atomic_file.h"

namespace kestrow {
namespace {

TEST(ShareStore, OlderRecordsLoadWithTheirDefaultsAndOneBadRecordEmptiesTheList) {
    const std::string older =
        R"([{"id":"A1","name":"Old","host":"nas","shareName":"data","username":"",)"
        R"("mountPoint":"/Volumes/data","autoMount":true}])";
    const auto shares = ShareStore::decode(older);
    ASSERT_EQ(shares.size(), 1u);
    EXPECT_EQ(shares[0].connectionProtocol, ShareProtocol::smb);
    EXPECT_EQ(shares[0].webDAVScheme, WebDAVScheme::https);
    EXPECT_EQ(shares[0].port, 0);
    EXPECT_FALSE(shares[0].vpnServiceID);
    EXPECT_EQ(shares[0].status, MountStatus::disconnected);

    // All or nothing: a second record without "autoMount", an unknown protocol, a text port.
    for (const char* bad : {R"({"id":"B","name":"x","host":"h","shareName":"s","username":"",)"
                            R"("mountPoint":"m"})",
                            R"({"id":"B","name":"x","host":"h","shareName":"s","username":"",)"
                            R"("mountPoint":"m","autoMount":true,"connectionProtocol":"NFS"})",
                            R"({"id":"B","name":"x","host":"h","shareName":"s","username":"",)"
                            R"("mountPoint":"m","autoMount":true,"port":"445"})"}) {
        const std::string text = older.substr(0, older.size() - 1) + "," + bad + "]";
        EXPECT_TRUE(ShareStore::decode(text).empty()) << bad;
    }
    EXPECT_TRUE(ShareStore::decode("{}").empty());
    EXPECT_TRUE(ShareStore::decode(std::string(100000, '[')).empty());
}

TEST(ShareStore, SavesOnlyStoredFieldsInOrderAndReadsThemBack) {
    const auto folder = std::filesystem::path(testing::TempDir()) / "share-store";
    std::filesystem::remove_all(folder);
    ShareStore store(folder);
    EXPECT_TRUE(std::filesystem::is_directory(folder / "MountWarden"));
    EXPECT_TRUE(store.load().empty());  // no file yet

    SMBShare share;
    share.id = newShareId();
    share.name = "Team \"files\"";
    share.connectionProtocol = ShareProtocol::webdav;
    share.webDAVScheme = WebDAVScheme::http;
    share.host = "https://10.0.0.2:8443";
    share.port = 9000;
    share.shareName = "dav/team";
    share.username = "DOM\\ann";
    share.mountPoint = "";
    share.autoMount = false;
    share.vpnServiceID = "uuid-1";
    share.vpnName = "Office VPN";
    share.status = MountStatus::mounted;
    share.lastError = "never written";
    ASSERT_TRUE(store.save({share}));

    const std::string text = *readFile(store.file());
    EXPECT_EQ(text.find("never written"), std::string::npos);
    EXPECT_EQ(text.find("status"), std::string::npos);
    EXPECT_LT(text.find("\"id\""), text.find("\"name\""));
    EXPECT_LT(text.find("\"mountPoint\""), text.find("\"autoMount\""));
    EXPECT_NE(text.find("\"webDAVScheme\":\"HTTP\""), std::string::npos);

    const auto loaded = store.load();
    ASSERT_EQ(loaded.size(), 1u);
    SMBShare expected = share;
    expected.status = MountStatus::disconnected;
    expected.lastError.reset();
    EXPECT_EQ(loaded[0], expected);

    // An unreadable file is left as it is until the next save replaces it.
    { std::ofstream(store.file()) << "[{\"id\":"; }
    EXPECT_TRUE(store.load().empty());
    EXPECT_EQ(*readFile(store.file()), "[{\"id\":");
    std::filesystem::remove_all(folder);
}

TEST(ShareStore, NewIdsAreCanonicalUpperCaseVersionFourUuids) {
    const std::string id = newShareId();
    ASSERT_EQ(id.size(), 36u);
    EXPECT_EQ(id[8], '-');
    EXPECT_EQ(id[14], '4');
    EXPECT_NE(std::string("89AB").find(id[19]), std::string::npos);
    for (char c : id) EXPECT_TRUE(c == '-' || (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F'));
    EXPECT_NE(newShareId(), id);
}

}  // namespace
}  // namespace kestrow
