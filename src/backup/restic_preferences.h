#pragma once

#include <optional>
#include <vector>

#include "backup/backup_attempt.h"
#include "backup/restic_job.h"
#include "timemachine/preferences.h"

namespace kestrow {

// What is known of one restic job at a moment: its attempts from the ledger and the snapshots
// last listed from its repository.
struct ResticJobRecord {
    ResticJob job;
    std::vector<BackupAttempt> attempts;   // oldest first
    std::vector<WallTime> snapshotEnds;    // from the last listing
    std::vector<std::string> snapshotIds;  // the same listing's ids
    std::optional<WallTime> listedAt;      // when that listing was taken
    // Where the verdict should probe for a remote repository ("sftp://host:22"); none for a
    // local one.
    std::optional<std::string> probeURL;
};

// Describes the restic jobs as the one `Preferences` snapshot that the verdict, rings and
// widgets read, so they need not know restic: each job is a destination whose snapshots are its
// repository's backups and whose attempts are Kestrow's own.
class ResticPreferences {
public:
    static Preferences make(const std::vector<ResticJobRecord>& jobs);
    static Destination destinationOf(const ResticJobRecord& record);
};

}  // namespace kestrow
