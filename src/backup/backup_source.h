#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "platform/backup_diagnostics.h"
#include "platform/time_machine_tools.h"
#include "support/signal.h"
#include "timemachine/time_machine_live_status.h"

namespace kestrow {

enum class BackupSourceKind { restic, dejaDup, timeMachine };

// "restic", "dejaDup", "timeMachine": the command line's names.
std::string_view backupSourceKindName(BackupSourceKind kind);

// Which source backs this machine up, and what the user calls it ("restic", "Déjà Dup",
// "Time Machine").
struct BackupSourceName {
    BackupSourceKind kind = BackupSourceKind::restic;
    std::string name;
    bool operator==(const BackupSourceName&) const = default;
};

// What a source says it is doing now.
struct LiveBackupReading {
    TimeMachineLiveStatus status;         // lenient: what the menu shows
    std::optional<bool> running;          // strict: absent when it cannot be told
    std::optional<double> timeRemaining;  // seconds, when the source estimates it
    bool operator==(const LiveBackupReading&) const = default;
};

// One thing that backs this machine up: the restic jobs Kestrow runs, Déjà Dup, or Time Machine.
// Every source describes itself with the same `Preferences` snapshot, which it keeps in the shared
// store (it stores it when it starts and whenever its facts change, or removes it when it has
// none, then emits `changed`), so the verdict, rings, history and notifier never know which source
// they look at. Main executor only; every answer comes later on the main executor, exactly once.
class BackupSource {
public:
    virtual ~BackupSource() = default;

    virtual BackupSourceName name() const = 0;
    // Whether this source is set up on this machine, so that it is the one to watch. May read
    // the source's settings; cheap enough to ask whenever the choice is made again.
    virtual bool configured() = 0;
    // Reads what the source knows now, stores the snapshot, and starts following its changes.
    virtual void start() = 0;
    // Stops following changes. A backup that Kestrow itself runs is interrupted and recorded so.
    virtual void stop() = 0;

    virtual void liveStatus(std::function<void(LiveBackupReading)> done) = 0;
    // Back Up Now. `Accepted` means a backup was asked for; whether one began shows in the live
    // status.
    virtual void startBackup(std::function<void(StartBackupOutcome)> done) = 0;
    // Why the newest attempt failed, in the user's words.
    virtual FailureReasonLookup& failureReasons() = 0;

    // The stored snapshot changed.
    Signal<> changed;
};

}  // namespace kestrow
