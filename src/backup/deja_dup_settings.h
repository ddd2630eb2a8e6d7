#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "support/clock.h"
#include "timemachine/preferences.h"

namespace kestrow {

// The Déjà Dup settings Kestrow reads (read-only: Déjà Dup owns them), each field with the
// default Déjà Dup itself gives a key that was never set. Dates are kept as written, so that a
// date Kestrow cannot read stays "no date" rather than a wrong one.
struct DejaDupSettings {
    std::string lastBackup;          // "last-backup": the last backup that completed
    std::string lastRun;             // "last-run": the last time Déjà Dup ran an operation
    bool periodic = false;           // "periodic": automatic backups
    int periodicPeriod = 7;          // "periodic-period": days between them
    std::string backend = "auto";    // "backend": the kind of location; "auto" until one is chosen
    std::string tool = "duplicity";  // "tool": the program that does the backing up

    std::string localFolder = "$HOSTNAME";      // local/folder
    std::string driveUuid;                      // drive/uuid
    std::string driveName;                      // drive/name
    std::string driveFolder = "$HOSTNAME";      // drive/folder
    std::string remoteUri;                      // remote/uri
    std::string remoteFolder = "$HOSTNAME";     // remote/folder
    std::string googleFolder = "$HOSTNAME";     // google/folder
    std::string microsoftFolder = "$HOSTNAME";  // microsoft/folder

    // Not a key: the machine's name, which Déjà Dup puts in place of "$HOSTNAME" in folders.
    std::string hostName;

    bool operator==(const DejaDupSettings&) const = default;

    std::optional<WallTime> lastBackupTime() const { return parseDate(lastBackup); }
    std::optional<WallTime> lastRunTime() const { return parseDate(lastRun); }

    // Déjà Dup counts as backing this machine up when it has completed a backup, or when it has
    // a location chosen (a drive with its UUID, a server with its address, a folder or a cloud
    // account) and automatic backups on. Installed but never set up (the defaults: location
    // "auto", automatic backups off, no backup) does not count, so another source can be chosen.
    bool configured() const;

    // The snapshot the backup subsystem reads: one destination for the chosen location, its one
    // completed backup, and the last run as an attempt when it came after that backup (a run
    // that ended without a backup). Déjà Dup records no failure codes, so the result is 0.
    Preferences preferences() const;

    // ISO 8601 as Déjà Dup writes it: a fraction of a second is allowed, and the offset may be
    // "Z", "+HH:MM", "+HHMM" or "+HH". Nothing for anything else, empty text included.
    static std::optional<WallTime> parseDate(std::string_view text);
};

}  // namespace kestrow
