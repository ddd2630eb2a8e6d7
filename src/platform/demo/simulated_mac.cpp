#include "platform/demo/simulated_mac.h"

#include <array>
#include <cmath>

#include "platform/demo/demo_probe.h"
#include "support/plist_value.h"

namespace kestrow {
namespace {

constexpr double kHour = 3600.0;
constexpr double kDay = 24 * kHour;

// The phases of one simulated backup, with the share of the cycle each takes.
struct Phase {
    const char* key;
    double until;  // fraction of the cycle at which the phase ends
};
constexpr std::array<Phase, 6> kPhases{{{"Starting", 0.04},
                                        {"MountingBackupVol", 0.10},
                                        {"FindingChanges", 0.22},
                                        {"Copying", 0.88},
                                        {"Finishing", 0.95},
                                        {"ThinningPostBackup", 1.0}}};

class DemoTools final : public TimeMachineTools {
public:
    DemoTools(Clock& clock, Executor& main, WallTime started)
        : clock_(clock), main_(main), started_(started) {}

    void status(std::function<void(std::optional<std::string>)> done) override {
        main_.post([this, done = std::move(done)] { done(statusOutput()); });
    }
    void startBackup(std::function<void(StartBackupOutcome)> done) override {
        // A backup already runs; Time Machine accepts the request and carries on with it.
        main_.post([done = std::move(done)] { done(StartBackupOutcome{{}}); });
    }

private:
    std::string statusOutput() const {
        const double elapsed = std::max(0.0, secondsBetween(started_, clock_.now()));
        // The demo opens with the backup well into copying, where there is most to see.
        const double cycle = std::fmod(elapsed + 0.4 * SimulatedMac::kBackupCycleSeconds,
                                       SimulatedMac::kBackupCycleSeconds) /
                             SimulatedMac::kBackupCycleSeconds;
        const Phase* phase = &kPhases.back();
        for (const Phase& candidate : kPhases) {
            if (cycle < candidate.until) {
                phase = &candidate;
                break;
            }
        }
        PlistDict status{{"BackupPhase", phase->key},
                         {"ClientID", "com.apple.backupd"},
                         {"Running", 1},
                         {"Stopping", 0}};
        if (std::string_view(phase->key) == "Copying") {
            const double percent = (cycle - 0.22) / (0.88 - 0.22);
            status["Percent"] = percent;
            status["Progress"] = PlistDict{
                {"Percent", percent},
                {"TimeRemaining",
                 static_cast<std::int64_t>((0.88 - cycle) * SimulatedMac::kBackupCycleSeconds)}};
        }
        return PlistValue(status).toXml();
    }

    Clock& clock_;
    Executor& main_;
    WallTime started_;
};

class DemoVolumes final : public BackupVolumes {
public:
    std::optional<bool> attached(const Destination&) override { return true; }
};

class DemoFailureReasons final : public FailureReasonLookup {
public:
    explicit DemoFailureReasons(Executor& main) : main_(main) {}
    void lookup(WallTime, std::int64_t, std::function<void(FailureReasonAnswer)> done) override {
        main_.post([done = std::move(done)] {
            done(FailureReasonAnswer{"The backup disk image disconnected during the backup", true});
        });
    }

private:
    Executor& main_;
};

}  // namespace

struct SimulatedMac::Parts {
    DemoTools tools;
    DemoProbe probe;
    DemoVolumes volumes;
    DemoFailureReasons failureReasons;
};

SimulatedMac::SimulatedMac(Clock& clock, Executor& mainExecutor)
    : started_(clock.now()),
      parts_(std::make_unique<Parts>(Parts{DemoTools(clock, mainExecutor, started_),
                                           DemoProbe(mainExecutor), DemoVolumes(),
                                           DemoFailureReasons(mainExecutor)})) {}

SimulatedMac::~SimulatedMac() = default;

Preferences SimulatedMac::preferences() const {
    Destination vault;
    vault.id = "5C1A7E2B-93D4-4F0A-B8E6-2D7F61C0A9E4";
    vault.isEncrypted = true;
    vault.isNetwork = true;
    vault.networkURL = "smb://kestrow-demo@vault.local/TimeMachine";
    vault.destinationUUIDs = std::vector<std::string>{"0F9C3B72-5E11-4C8A-A1D0-7B2E94C6F318"};
    vault.volumeName = "Vault";
    vault.bytesAvailable = 12'400'000'000;  // full: Time Machine thins the oldest
    vault.bytesUsed = 642'300'000'000;

    // A backup every two hours for two weeks, the newest 55 minutes before the demo starts;
    // nothing while the Mac was away from home for two days last week; one attempt three days
    // ago that did not complete.
    const WallTime newest = addSeconds(started_, -55 * 60.0);
    const double awayFrom = 9 * kDay;
    const double awayUntil = 7 * kDay;
    const double failedAt = 3 * kDay + 6 * kHour;
    for (double age = 14 * kDay; age >= 0.0; age -= 2 * kHour) {
        if (age < awayFrom && age > awayUntil) continue;
        const WallTime when = addSeconds(newest, -age);
        vault.attempts.push_back(when);
        if (age != failedAt) vault.snapshots.push_back(when);
    }
    vault.lastResult = 0;

    Destination archive;
    archive.id = "A4D2F7C1-0B6E-4E39-9C85-3F1A2B7D6E50";
    archive.volumeName = "Archive";
    archive.bytesAvailable = 310'000'000'000;
    archive.bytesUsed = 1'690'000'000'000;
    archive.snapshots = {addSeconds(started_, -41 * kDay), addSeconds(started_, -34 * kDay)};
    archive.attempts = archive.snapshots;

    Preferences preferences;
    preferences.destinations = std::vector<Destination>{vault, archive};
    preferences.lastDestination = vault;
    preferences.automaticBackups = false;
    return preferences;
}

TimeMachineTools& SimulatedMac::tools() {
    return parts_->tools;
}
NetworkProbe& SimulatedMac::probe() {
    return parts_->probe;
}
BackupVolumes& SimulatedMac::volumes() {
    return parts_->volumes;
}
FailureReasonLookup& SimulatedMac::failureReasons() {
    return parts_->failureReasons;
}

}  // namespace kestrow
