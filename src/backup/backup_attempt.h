#pragma once

#include <optional>
#include <string>

#include "support/clock.h"

namespace kestrow {

// Why a restic attempt failed, as far as Kestrow can tell.
enum class BackupFailureKind {
    diskNotConnected,    // the repository's drive is not mounted
    repositoryNotFound,  // no repository at the location
    wrongPassword,
    missingPassword,  // no password stored for the job
    keyringLocked,
    keyringUnavailable,  // no keyring answered, or it failed or hung
    repositoryLocked,    // another backup holds the repository's lock
    networkUnreachable,
    outOfSpace,
    interrupted,  // sleep, logout, quit, or killed
    toolMissing,  // restic is not installed
    other,        // restic didn't say why
};

// One backup attempt of a restic job, as Kestrow's attempt ledger keeps it. restic itself records
// only the snapshots of attempts that succeeded; the verdict needs the failed ones too.
struct BackupAttempt {
    std::string jobId;
    WallTime start;
    std::optional<WallTime> end =
        std::nullopt;  // absent while it runs (or when Kestrow died during it)
    std::optional<int> exitStatus =
        std::nullopt;  // restic's status; absent when it did not exit by itself
    std::optional<BackupFailureKind> failure = std::nullopt;  // absent on success
    std::optional<std::string> error =
        std::nullopt;  // restic's own words, shortened, for the log and --json
    std::optional<std::string> snapshot = std::nullopt;  // the new snapshot's id, on success
    bool operator==(const BackupAttempt&) const = default;
};

}  // namespace kestrow
