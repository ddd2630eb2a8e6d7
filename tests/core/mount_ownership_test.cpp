#include "shares/mount_ownership.h"

#include <gtest/gtest.h>

#include <string>

#include "app/settings/settings_keys.h"
#include "shares/mount_adoption.h"
#include "shares/mount_ledger.h"
#include "shares/mount_matching.h"
#include "support/deep_documents.h"
#include "support/recording_log_sink.h"
#include "support/share_fakes.h"
#include "support/temp_folder.h"

namespace kestrow {
namespace {

using testing::FakeMountTable;
using testing::gvfsSmbEntry;
using Kind = MountOwnership::Verdict::Kind;
using Reason = MountOwnership::Reason;

const std::string kRoot = "/run/user/1000/gvfs/";
constexpr std::int64_t kBoot = 1700000000;

SMBShare nasData(std::string user = {}) {
    SMBShare share;
    share.id = "0A0B0C0D-0000-4000-8000-000000000001";
    share.name = "Data";
    share.host = "nas.local";
    share.shareName = "data";
    share.username = std::move(user);
    return share;
}

std::optional<std::vector<MountEntry>> tableOf(std::vector<MountEntry> entries) {
    return entries;
}

PlistData bytes(const std::string& text) {
    return PlistData(text.begin(), text.end());
}

MountOwnership::Verdict verdictFor(const SMBShare& share, const std::vector<MountEntry>& table,
                                   const std::vector<OwnedMount>& ledger,
                                   const std::vector<std::string>& destinations = {},
                                   const MountOwnership::Resolve& resolve = {}) {
    return MountOwnership::verdict(share, table, ledger, kBoot, destinations, resolve, kRoot);
}

TEST(MountLedgerTest, StoresADataValueAndReadsAnythingDoubtfulAsEmpty) {
    testing::TempFolder folder;
    testing::RecordingLogSink sink;
    SettingsStore store{folder / "standard.plist", Logger(sink, LogArea::general)};
    MountLedger ledger(store);
    const std::vector<OwnedMount> records{
        {kRoot + "smb-share:server=nas,share=data", -42, "//nas/data", kBoot}};
    ledger.save(records);
    ASSERT_TRUE(store.dataValue(keys::ownedMounts).has_value());
    EXPECT_EQ(ledger.load(), records);

    // One bad record fails the whole ledger: a half-read ledger could hand out ownership.
    for (const std::string bad :
         {"", "{}", "[1]", "not json",
          R"([{"mountedOn":"/a","fsid":1,"from":"//h/s","boot":1},{"mountedOn":"/b"}])",
          R"([{"mountedOn":"/a","fsid":"1","from":"//h/s","boot":1}])",
          R"([{"mountedOn":"/a","fsid":1.5,"from":"//h/s","boot":1}])",
          R"([{"mountedOn":"/a","fsid":18446744073709551615,"from":"//h/s","boot":1}])"}) {
        EXPECT_TRUE(MountLedger::decode(bytes(bad)).empty()) << bad;
    }
    const std::string deep = testing::deepJson(100000);
    EXPECT_TRUE(MountLedger::decode(bytes(deep)).empty());
    store.set(keys::ownedMounts, PlistValue(std::string("a string, not data")));
    EXPECT_TRUE(ledger.load().empty());

    // Dropping a path forgets only that path.
    ledger.save({{"/a", 1, "//h/a", kBoot}, {"/b", 2, "//h/b", kBoot}});
    ledger.drop("/a");
    EXPECT_EQ(ledger.load(), (std::vector<OwnedMount>{{"/b", 2, "//h/b", kBoot}}));
}

TEST(MountOwnershipTest, OnlyRecordsOfThisBootForTheSameMountInstanceStayLive) {
    const MountEntry entry = gvfsSmbEntry(kRoot, "nas", "data", 7);
    const OwnedMount exact{entry.mountedOn, 7, entry.from, kBoot};
    const std::vector<MountEntry> table{entry};
    EXPECT_EQ(MountOwnership::live({exact}, table, kBoot).size(), 1u);
    // A restart: the same path and source again is not the mount that was recorded.
    EXPECT_TRUE(
        MountOwnership::live({{entry.mountedOn, 7, entry.from, kBoot - 1}}, table, kBoot).empty());
    EXPECT_TRUE(
        MountOwnership::live({{entry.mountedOn, 8, entry.from, kBoot}}, table, kBoot).empty());
    EXPECT_TRUE(
        MountOwnership::live({{entry.mountedOn, 7, "//nas/other", kBoot}}, table, kBoot).empty());
    MountEntry kernel = entry;
    kernel.fsType = "cifs";
    EXPECT_TRUE(MountOwnership::live({exact}, {kernel}, kBoot).empty());
    EXPECT_FALSE(MountOwnership::owns(entry.mountedOn, {kernel}, {exact}, kBoot));
    EXPECT_TRUE(MountOwnership::owns(entry.mountedOn, table, {exact}, kBoot));

    EXPECT_TRUE(MountOwnership::isUserVolumePath(kRoot + "smb-share:server=nas,share=d-1", kRoot));
    EXPECT_FALSE(MountOwnership::isUserVolumePath(kRoot + ".hidden", kRoot));
    EXPECT_FALSE(MountOwnership::isUserVolumePath(kRoot + "a/b", kRoot));
    EXPECT_FALSE(MountOwnership::isUserVolumePath(kRoot, kRoot));
    EXPECT_FALSE(MountOwnership::isUserVolumePath("/mnt/data", kRoot));
    EXPECT_FALSE(MountOwnership::isUserVolumePath("/run/user/1000/gvfsx", kRoot));
}

TEST(MountOwnershipTest, AMountCallIsCreditedOnlyWithTheOneNewMountItCertainlyMade) {
    const SMBShare share = nasData();
    const auto isShare = [&](const MountEntry& e) { return MountMatching::matches(share, e); };
    const MountEntry other = gvfsSmbEntry(kRoot, "other", "x", 1);
    const MountEntry made = gvfsSmbEntry(kRoot, "nas", "data", 2);
    const std::vector<MountEntry> before{other};
    EXPECT_EQ(
        MountOwnership::mountCreatedByCall(tableOf(before), tableOf({other, made}), isShare, kRoot),
        made.mountedOn);

    MountEntry second = made;
    second.mountedOn = kRoot + "smb-share:server=nas,share=data-2";
    second.fsid = 3;
    EXPECT_EQ(MountOwnership::mountCreatedByCall(tableOf(before), tableOf({other, made, second}),
                                                 isShare, kRoot),
              std::nullopt);
    EXPECT_EQ(MountOwnership::mountCreatedByCall(std::nullopt, tableOf({made}), isShare, kRoot),
              std::nullopt);
    EXPECT_EQ(MountOwnership::mountCreatedByCall(tableOf({made}), tableOf({made}), isShare, kRoot),
              std::nullopt);
    MountEntry hidden = made;
    hidden.flags = kDontBrowseFlag;
    EXPECT_EQ(
        MountOwnership::mountCreatedByCall(tableOf(before), tableOf({hidden}), isShare, kRoot),
        std::nullopt);
    MountEntry kernel = made;
    kernel.fsType = "cifs";
    EXPECT_EQ(
        MountOwnership::mountCreatedByCall(tableOf(before), tableOf({kernel}), isShare, kRoot),
        std::nullopt);
    MountEntry nested = made;
    nested.mountedOn = kRoot + "x/y";
    EXPECT_EQ(
        MountOwnership::mountCreatedByCall(tableOf(before), tableOf({nested}), isShare, kRoot),
        std::nullopt);
    EXPECT_EQ(MountOwnership::mountCreatedByCall(
                  tableOf(before), tableOf({gvfsSmbEntry(kRoot, "nas", "z", 4)}), isShare, kRoot),
              std::nullopt);

    testing::TempFolder folder;
    testing::RecordingLogSink sink;
    SettingsStore store{folder / "standard.plist", Logger(sink, LogArea::general)};
    MountLedger ledger(store);
    EXPECT_FALSE(ledger.recordNewMount(1, made.mountedOn, tableOf({made}), kBoot));
    EXPECT_FALSE(ledger.recordNewMount(0, made.mountedOn, std::nullopt, kBoot));
    EXPECT_FALSE(ledger.recordNewMount(0, "/nowhere", tableOf({made}), kBoot));
    // A stale record at the same path is replaced, a record of an earlier boot pruned.
    ledger.save({{made.mountedOn, 99, made.from, kBoot}, {"/old", 5, "//h/s", kBoot - 1}});
    EXPECT_TRUE(ledger.recordNewMount(0, made.mountedOn, tableOf({made}), kBoot));
    EXPECT_EQ(ledger.load(),
              (std::vector<OwnedMount>{{made.mountedOn, made.fsid, made.from, kBoot}}));
}

TEST(MountOwnershipTest, TheVerdictOwnsOnlyARecordedMountAndNamesWhyOthersAreLeftAlone) {
    const SMBShare share = nasData();
    const MountEntry entry = gvfsSmbEntry(kRoot, "nas", "data", 7, "tm");
    const OwnedMount record{entry.mountedOn, 7, entry.from, kBoot};

    EXPECT_EQ(MountOwnership::verdict(share, std::nullopt, {record}, kBoot, {}, {}, kRoot),
              MountOwnership::Verdict::leftAlone(Reason::unknown));
    EXPECT_EQ(verdictFor(share, {gvfsSmbEntry(kRoot, "nas", "else", 1)}, {record}).kind,
              Kind::notMounted);
    EXPECT_EQ(verdictFor(share, {entry}, {record}),
              MountOwnership::Verdict::owned(entry.mountedOn));

    // At a user volume path but not ours: never "not mounted".
    EXPECT_EQ(verdictFor(share, {entry}, {}),
              MountOwnership::Verdict::leftAlone(Reason::anotherApp));
    EXPECT_EQ(verdictFor(share, {entry}, {{entry.mountedOn, 7, entry.from, kBoot - 1}}),
              MountOwnership::Verdict::leftAlone(Reason::anotherApp));
    EXPECT_EQ(verdictFor(share, {entry}, {{entry.mountedOn, 8, entry.from, kBoot}}),
              MountOwnership::Verdict::leftAlone(Reason::anotherApp));

    // The backup share wins over a ledger record.
    EXPECT_EQ(verdictFor(share, {entry}, {record}, {"smb://tm@nas.local/Data"}),
              MountOwnership::Verdict::leftAlone(Reason::timeMachine));
    const MountOwnership::Resolve resolve = [](const std::string& host) {
        std::optional<std::set<std::string>> addresses;
        if (host == "backup-box" || host == "nas") addresses = std::set<std::string>{"10.0.0.5"};
        return addresses;
    };
    EXPECT_EQ(verdictFor(share, {entry}, {record}, {"smb://backup-box/data"}, resolve),
              MountOwnership::Verdict::leftAlone(Reason::timeMachine));
    EXPECT_EQ(verdictFor(share, {entry}, {record}, {"smb://elsewhere/data"}, resolve),
              MountOwnership::Verdict::owned(entry.mountedOn));

    MountEntry hidden = entry;
    hidden.flags = kDontBrowseFlag;
    EXPECT_EQ(verdictFor(share, {hidden}, {record}),
              MountOwnership::Verdict::leftAlone(Reason::system));
    MountEntry outside = entry;
    outside.mountedOn = "/mnt/data";
    EXPECT_EQ(verdictFor(share, {outside}, {{"/mnt/data", 7, entry.from, kBoot}}),
              MountOwnership::Verdict::leftAlone(Reason::system));
    MountEntry kernel = entry;
    kernel.fsType = "cifs";
    EXPECT_EQ(verdictFor(share, {kernel}, {record}),
              MountOwnership::Verdict::leftAlone(Reason::anotherApp));
    // The first reason is kept, but an owned mount further on is still ours to unmount.
    EXPECT_EQ(verdictFor(share, {outside, entry}, {record}),
              MountOwnership::Verdict::owned(entry.mountedOn));
}

TEST(MountOwnershipTest, ReasonsReadTheLinuxWayAndNameTheActiveBackupSource) {
    const Wording linux = Wording::linux("restic");
    const std::string another = MountOwnership::reasonText(Reason::anotherApp, linux);
    EXPECT_EQ(another.find("Finder"), std::string::npos) << another;
    EXPECT_EQ(another.rfind("Connected by another app, or before this update — left alone.", 0),
              0u);
    EXPECT_EQ(MountOwnership::reasonText(Reason::timeMachine, linux),
              "restic's backup share — left alone");
    EXPECT_EQ(MountOwnership::reasonText(Reason::system, linux),
              "Mounted by the system — left alone");
    EXPECT_EQ(MountOwnership::reasonText(Reason::unknown, linux),
              "Could not tell who connected it — left alone");
    EXPECT_EQ(MountOwnership::reasonText(Reason::anotherApp, Wording::exact()),
              "Connected by another app, or before this update — left alone. Eject it in Finder "
              "to disconnect.");
}

struct AdoptionRig {
    testing::TempFolder folder;
    testing::RecordingLogSink sink;
    SettingsStore store{folder / "standard.plist", Logger(sink, LogArea::general)};
    MountLedger ledger{store};
    FakeMountTable table;
    std::optional<std::vector<std::string>> destinations = std::vector<std::string>{};

    bool adopt(const std::vector<SMBShare>& shares) {
        return adoptEarlierMounts(
            shares, table, [this] { return destinations; }, ledger, store, {},
            Wording::linux("restic"), Logger(sink, LogArea::mounting));
    }
};

TEST(MountAdoptionTest, AdoptsOnceTheMountsOfTheSharesUserAndNeverABackupShare) {
    AdoptionRig rig;
    rig.table.root = kRoot;
    rig.table.boot = kBoot;
    const MountEntry alices = gvfsSmbEntry(kRoot, "nas", "data", 1, "alice");
    const MountEntry backup = gvfsSmbEntry(kRoot, "nas", "backups", 2, "alice");
    const MountEntry bobs = gvfsSmbEntry(kRoot + "b/", "nas", "data", 3, "bob");
    rig.table.table = {alices, backup, bobs};
    SMBShare data = nasData("alice");
    SMBShare backups = nasData("alice");
    backups.id = "0A0B0C0D-0000-4000-8000-000000000002";
    backups.shareName = "backups";
    SMBShare bob = nasData("bob");

    // Unreadable backup settings: nothing adopted, and the flag waits for the next launch.
    rig.destinations.reset();
    EXPECT_FALSE(rig.adopt({data, backups}));
    EXPECT_FALSE(rig.store.boolValue(keys::adoptedPreUpdateMounts).value_or(false));
    EXPECT_TRUE(rig.sink.contains("earlier mounts not adopted yet"));
    EXPECT_FALSE(rig.sink.contains("Time Machine"));
    rig.table.readable = false;
    rig.destinations = std::vector<std::string>{"smb://alice@nas/backups"};
    EXPECT_FALSE(rig.adopt({data, backups}));
    EXPECT_TRUE(rig.ledger.load().empty());

    rig.table.readable = true;
    EXPECT_TRUE(rig.adopt({data, backups, data, bob}));
    EXPECT_EQ(rig.ledger.load(),
              (std::vector<OwnedMount>{{alices.mountedOn, 1, alices.from, kBoot}}));
    EXPECT_TRUE(rig.sink.contains("Mounting: adopted 1 mount(s) an earlier version made"));
    EXPECT_TRUE(rig.store.boolValue(keys::adoptedPreUpdateMounts).value_or(false));

    // A mount by hand after adoption ran is never taken in.
    const MountEntry later = gvfsSmbEntry(kRoot, "nas", "photos", 4, "alice");
    rig.table.add(later);
    SMBShare photos = nasData("alice");
    photos.shareName = "photos";
    EXPECT_TRUE(rig.adopt({photos}));
    EXPECT_EQ(rig.ledger.load().size(), 1u);
    EXPECT_EQ(verdictFor(photos, rig.table.entries(), rig.ledger.load()),
              MountOwnership::Verdict::leftAlone(Reason::anotherApp));
}

TEST(MountAdoptionTest, NothingToAdoptIsStillLoggedAndRemembered) {
    AdoptionRig rig;
    EXPECT_TRUE(rig.adopt({nasData()}));
    EXPECT_TRUE(rig.sink.contains("adopted 0 mount(s) an earlier version made"));
    EXPECT_TRUE(rig.store.boolValue(keys::adoptedPreUpdateMounts).value_or(false));
}

}  // namespace
}  // namespace kestrow
