#pragma once

#include <cstdint>
#include <memory>

#include "platform/backup_diagnostics.h"
#include "platform/network_probe.h"
#include "platform/time_machine_tools.h"
#include "support/clock.h"
#include "support/executor.h"
#include "timemachine/preferences.h"

namespace kestrow {

// The built-in Mac behind --demo: a network Time Machine destination with two weeks of backups,
// a weekend away, a failed attempt three days ago and a backup running now. Its owner has turned
// automatic backups off, the backup disk is full and the home disk is nearly so, which gives the
// menu three alert cards to order and collapse. Every date is placed
// relative to the moment the demo starts, so the demo always looks current, and the running
// backup moves through its phases on the clock it is given.
class SimulatedMac {
public:
    SimulatedMac(Clock& clock, Executor& mainExecutor);
    ~SimulatedMac();
    SimulatedMac(const SimulatedMac&) = delete;
    SimulatedMac& operator=(const SimulatedMac&) = delete;

    WallTime started() const { return started_; }
    // The Time Machine settings as the settings file would give them.
    Preferences preferences() const;

    TimeMachineTools& tools();
    NetworkProbe& probe();
    BackupVolumes& volumes();
    FailureReasonLookup& failureReasons();

    // Free space on the demo's home disk: low enough to raise the low-space card.
    static constexpr std::int64_t kHomeFreeBytes = 7'400'000'000;

    // How long one simulated backup takes, start to finish, before the next begins.
    static constexpr double kBackupCycleSeconds = 240.0;

private:
    struct Parts;
    WallTime started_;
    std::unique_ptr<Parts> parts_;
};

}  // namespace kestrow
