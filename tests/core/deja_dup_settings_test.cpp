#include "backup/deja_dup_settings.h"

#include <gtest/gtest.h>

#include "support/iso_date.h"

namespace kestrow {
namespace {

WallTime at(const char* iso) {
    return *parseIsoDate(iso);
}

DejaDupSettings drive() {
    DejaDupSettings s;
    s.backend = "drive";
    s.driveUuid = "7c1e-55aa";
    s.driveName = "Backup Disk";
    s.driveFolder = "$HOSTNAME";
    s.hostName = "studio";
    return s;
}

DejaDupSettings remote(const std::string& uri) {
    DejaDupSettings s;
    s.backend = "remote";
    s.remoteUri = uri;
    s.remoteFolder = "/backups/$HOSTNAME/";
    s.hostName = "studio";
    s.lastBackup = "2026-11-20T08:00:00Z";
    return s;
}

TEST(DejaDupSettingsTest, DatesAreReadInEveryFormDejaDupWritesAndNothingElse) {
    EXPECT_EQ(DejaDupSettings::parseDate("2026-11-21T03:15:00Z"), at("2026-11-21T03:15:00Z"));
    EXPECT_EQ(DejaDupSettings::parseDate("2026-11-21T03:15:00.250000Z"),
              addSeconds(at("2026-11-21T03:15:00Z"), 0.25));
    EXPECT_EQ(DejaDupSettings::parseDate("2026-11-21T04:15:00+01:00"), at("2026-11-21T03:15:00Z"));
    // The short offsets GLib writes when the minutes are zero, and the compact form.
    EXPECT_EQ(DejaDupSettings::parseDate("2026-11-21T04:15:00.5+01"),
              addSeconds(at("2026-11-21T03:15:00Z"), 0.5));
    EXPECT_EQ(DejaDupSettings::parseDate("2026-11-20T22:15:00-05"), at("2026-11-21T03:15:00Z"));
    EXPECT_EQ(DejaDupSettings::parseDate("2026-11-21T08:45:00+0530"), at("2026-11-21T03:15:00Z"));

    for (const char* bad :
         {"", "yesterday", "2026-11-21T03:15:00+1", "2026-11-21T03:15:00+123",
          "2026-11-21T03:15:00+01:0", "2026-11-21T03:15:00+ab", "2026-13-01", "2026-11-21T03:15",
          "2026-11-21T03:15:00Z trailing", "2026-11-21T03:15:00+01:00:00"}) {
        EXPECT_EQ(DejaDupSettings::parseDate(bad), std::nullopt) << bad;
    }
}

TEST(DejaDupSettingsTest, CountsAsConfiguredOnlyWithABackupDoneOrALocationAndASchedule) {
    DejaDupSettings untouched;  // installed, never opened
    EXPECT_FALSE(untouched.configured());

    DejaDupSettings scheduledNowhere;
    scheduledNowhere.periodic = true;  // the location is still "auto"
    EXPECT_FALSE(scheduledNowhere.configured());

    DejaDupSettings driveUnknown = drive();
    driveUnknown.driveUuid.clear();
    driveUnknown.periodic = true;
    EXPECT_FALSE(driveUnknown.configured()) << "a drive kind with no drive chosen";

    DejaDupSettings serverUnknown = remote("");
    serverUnknown.lastBackup.clear();
    serverUnknown.periodic = true;
    EXPECT_FALSE(serverUnknown.configured()) << "a server kind with no address";

    DejaDupSettings chosenButManual = drive();
    EXPECT_FALSE(chosenButManual.configured()) << "no schedule and never backed up";
    chosenButManual.periodic = true;
    EXPECT_TRUE(chosenButManual.configured());

    DejaDupSettings backedUpOnce;
    backedUpOnce.lastBackup = "2026-11-01T10:00:00Z";
    EXPECT_TRUE(backedUpOnce.configured()) << "a backup on record counts, schedule or not";

    DejaDupSettings unreadableDate;
    unreadableDate.lastBackup = "last Tuesday";
    EXPECT_FALSE(unreadableDate.configured());
}

TEST(DejaDupSettingsTest, ADriveIsOneLocalDestinationNamedAfterTheDrive) {
    DejaDupSettings s = drive();
    s.periodic = true;
    s.lastBackup = "2026-11-20T08:00:00Z";
    s.lastRun = "2026-11-20T08:00:04.5Z";  // written as the same backup ended
    const Preferences p = s.preferences();

    ASSERT_TRUE(p.lastDestination);
    ASSERT_TRUE(p.destinations);
    ASSERT_EQ(p.destinations->size(), 1U);
    EXPECT_EQ(p.destinations->front(), *p.lastDestination);
    const Destination& d = *p.lastDestination;
    EXPECT_EQ(d.id, "drive:7c1e-55aa/studio");
    EXPECT_EQ(d.volumeName, "Backup Disk");
    EXPECT_FALSE(d.isNetwork);
    EXPECT_EQ(d.networkURL, std::nullopt);
    EXPECT_EQ(d.snapshots, std::vector<WallTime>{at("2026-11-20T08:00:00Z")});
    EXPECT_EQ(d.attempts, std::vector<WallTime>{at("2026-11-20T08:00:00Z")});
    EXPECT_EQ(d.lastResult, 0);
    EXPECT_EQ(p.automaticBackups, true);

    s.periodic = false;
    s.driveName.clear();
    EXPECT_EQ(s.preferences().automaticBackups, false);
    EXPECT_EQ(s.preferences().lastDestination->volumeName, "studio")
        << "a drive without a name is named by its folder";

    DejaDupSettings other = drive();
    other.driveUuid = "0042-beef";
    EXPECT_NE(other.preferences().lastDestination->id, d.id) << "another drive is another place";
}

TEST(DejaDupSettingsTest, ARunAfterTheLastBackupIsAnAttemptWithoutASnapshot) {
    DejaDupSettings s = drive();
    s.lastBackup = "2026-11-18T08:00:00Z";
    s.lastRun = "2026-11-20T09:30:00+01:00";
    Destination d = *s.preferences().lastDestination;
    EXPECT_EQ(d.snapshots, std::vector<WallTime>{at("2026-11-18T08:00:00Z")});
    EXPECT_EQ(d.attempts,
              (std::vector<WallTime>{at("2026-11-18T08:00:00Z"), at("2026-11-20T08:30:00Z")}));
    EXPECT_EQ(d.lastResult, 0) << "Déjà Dup records no failure codes";

    s.lastRun = "2026-11-17T08:00:00Z";  // older than the backup: nothing new
    d = *s.preferences().lastDestination;
    EXPECT_EQ(d.attempts.size(), 1U);

    s.lastBackup.clear();  // it ran, but never completed a backup
    s.lastRun = "2026-11-19T08:00:00Z";
    d = *s.preferences().lastDestination;
    EXPECT_TRUE(d.snapshots.empty());
    EXPECT_EQ(d.attempts, std::vector<WallTime>{at("2026-11-19T08:00:00Z")});
    EXPECT_EQ(d.newestSnapshot(), std::nullopt);
}

TEST(DejaDupSettingsTest, ServersAreNetworkDestinationsProbedOnlyForFileSharingSchemes) {
    for (const char* uri : {"smb://nas.local/share", "sftp://me@nas.local:2222/",
                            "dav://nas.local/dav", "SMB://nas.local/share"}) {
        const Destination d = *remote(uri).preferences().lastDestination;
        EXPECT_TRUE(d.isNetwork) << uri;
        EXPECT_EQ(d.networkURL, std::optional<std::string>(uri)) << uri;
        EXPECT_EQ(d.volumeName, "backups/studio on nas.local") << uri;
    }
    const Destination smb = *remote("smb://nas.local/share/").preferences().lastDestination;
    EXPECT_EQ(smb.id, "remote:smb://nas.local/share/backups/studio");

    const Destination ftp = *remote("ftp://files.example.org/").preferences().lastDestination;
    EXPECT_TRUE(ftp.isNetwork);
    EXPECT_EQ(ftp.networkURL, std::nullopt);

    const Destination folder = *remote("file:///mnt/archive").preferences().lastDestination;
    EXPECT_FALSE(folder.isNetwork) << "a file: address is a folder of this machine";
    EXPECT_EQ(folder.networkURL, std::nullopt);

    DejaDupSettings noFolder = remote("smb://nas.local/share");
    noFolder.remoteFolder = "/";
    EXPECT_EQ(noFolder.preferences().lastDestination->volumeName, "nas.local");

    DejaDupSettings hostless = remote("smb:///share");
    EXPECT_EQ(hostless.preferences().lastDestination->volumeName, "smb:///share/backups/studio");
}

TEST(DejaDupSettingsTest, CloudAndLocalFoldersAreNamedInWords) {
    DejaDupSettings google;
    google.backend = "google";
    google.googleFolder = "deja-dup/$HOSTNAME";
    google.hostName = "studio";
    const Destination g = *google.preferences().lastDestination;
    EXPECT_TRUE(g.isNetwork);
    EXPECT_EQ(g.networkURL, std::nullopt);
    EXPECT_EQ(g.volumeName, "deja-dup/studio on Google Drive");

    DejaDupSettings microsoft;
    microsoft.backend = "microsoft";
    microsoft.hostName = "studio";
    EXPECT_EQ(microsoft.preferences().lastDestination->volumeName, "studio on Microsoft OneDrive");

    DejaDupSettings local;
    local.backend = "local";
    local.localFolder = "Backups/$HOSTNAME-$HOSTNAME";
    local.hostName = "studio";
    const Destination l = *local.preferences().lastDestination;
    EXPECT_FALSE(l.isNetwork);
    EXPECT_EQ(l.volumeName, "~/Backups/studio-studio") << "relative to the home folder";
    local.localFolder = "/srv/backup";
    EXPECT_EQ(local.preferences().lastDestination->volumeName, "/srv/backup");

    DejaDupSettings unnamedHost;
    unnamedHost.backend = "local";
    EXPECT_EQ(unnamedHost.preferences().lastDestination->volumeName, "~/$HOSTNAME")
        << "without the machine's name the folder stays as written";

    DejaDupSettings retired;
    retired.backend = "s3";
    retired.lastBackup = "2026-11-01T00:00:00Z";
    EXPECT_TRUE(retired.preferences().lastDestination->isNetwork);
    EXPECT_EQ(retired.preferences().lastDestination->volumeName, "s3");
}

}  // namespace
}  // namespace kestrow
