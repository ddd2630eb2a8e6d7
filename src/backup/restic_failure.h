#pragma once

#include <optional>
#include <string>
#include <vector>

#include "backup/backup_attempt.h"
#include "platform/restic_commands.h"
#include "platform/secret_store.h"

namespace kestrow {

// Everything known about a finished restic run.
struct ResticRunFacts {
    ResticEnding ending;
    // The messages of restic's JSON "error" and "exit_error" lines.
    std::vector<std::string> jsonErrors;
    // For a repository in a local folder: whether the folder is there, and whether the drive it
    // lives on is mounted (absent when it is not on a drive of its own).
    std::optional<bool> repositoryFolderExists;
    std::optional<bool> mountPresent;
};

// What became of the run.
struct ResticVerdict {
    std::optional<BackupFailureKind> failure;  // absent: a snapshot was made
    bool someFilesUnreadable = false;          // made, but without some files
    std::optional<std::string> error;          // restic's own words, shortened
    bool operator==(const ResticVerdict&) const = default;
};

// Tells why a restic run failed. restic 0.14 exits 1 for nearly every failure and explains on
// standard error; newer versions have distinct exit codes. Both are read.
class ResticFailure {
public:
    static ResticVerdict classify(const ResticRunFacts& facts);
    // Why the password could not be had from the keyring; nothing when it was.
    static std::optional<BackupFailureKind> fromKeyring(SecretAnswer::Status status);
    // What a person is told. `other` has none: the verdict names restic's code itself.
    static std::optional<std::string> sentence(BackupFailureKind kind);
};

}  // namespace kestrow
