#include "platform/demo/simulated_desktop.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "platform/demo/demo_job_editor.h"
#include "platform/demo/demo_probe.h"

namespace kestrow {
namespace {

constexpr double kMinute = 60.0;
constexpr double kHour = 3600.0;
constexpr double kDay = 24 * kHour;

constexpr const char* kJobId = "demo-home";
// How far into the running backup the demo opens: well into copying, where there is most to see.
constexpr double kOpeningShare = 0.4;
// How long before the demo started the drive was found missing.
constexpr double kFailedAge = 62 * kMinute;

// The computer is switched off for the night, seven hours of every day.
bool switchedOff(double age) {
    const double intoDay = std::fmod(age, kDay);
    return intoDay > 14 * kHour && intoDay < 21 * kHour;
}

// Two days away from the backup drive last week.
bool away(double age) {
    return age > 7 * kDay && age < 9 * kDay;
}

std::string userOf(const std::string& home) {
    const auto slash = home.find_last_of('/');
    const std::string user = slash == std::string::npos ? home : home.substr(slash + 1);
    return user.empty() ? "demo" : user;
}

ResticJob demoJob(const std::string& home) {
    ResticJob job;
    job.id = kJobId;
    job.name = "Home → Backup Disk";
    job.repository = "/run/media/" + userOf(home) + "/Backup Disk/restic";
    job.paths = {home};
    job.excludes = {home + "/.cache", home + "/.local/share/Trash"};
    job.automatic = true;
    return job;
}

class DemoVolumes final : public BackupVolumes {
public:
    // The drive is plugged in again.
    std::optional<bool> attached(const Destination&) override { return true; }
};

class DemoFailureReasons final : public FailureReasonLookup {
public:
    DemoFailureReasons(Executor& main, WallTime failed) : main_(main), failed_(failed) {}
    void lookup(WallTime attempt, std::int64_t,
                std::function<void(FailureReasonAnswer)> done) override {
        const bool theFailedOne = std::abs(secondsBetween(failed_, attempt)) <= 1.0;
        main_.post([theFailedOne, done = std::move(done)] {
            if (theFailedOne) {
                done(FailureReasonAnswer{SimulatedDesktop::kFailureReason, true});
            } else {
                done(FailureReasonAnswer{std::nullopt, true});
            }
        });
    }

private:
    Executor& main_;
    WallTime failed_;
};

}  // namespace

struct SimulatedDesktop::Parts {
    Parts(Executor& main, const std::string& home, WallTime failed)
        : editor(main, home, {demoJob(home)}), failureReasons(main, failed), probe(main) {}

    DemoJobEditor editor;
    DemoFailureReasons failureReasons;
    DemoProbe probe;
    DemoVolumes volumes;
    Signal<>::Connection jobsChanged;
};

SimulatedDesktop::SimulatedDesktop(Clock& clock, Executor& mainExecutor, SharedPreferences& shared,
                                   std::string home)
    : clock_(clock),
      main_(mainExecutor),
      shared_(shared),
      started_(clock.now()),
      parts_(std::make_unique<Parts>(mainExecutor, home, addSeconds(started_, -kFailedAge))) {}

SimulatedDesktop::~SimulatedDesktop() = default;

WallTime SimulatedDesktop::failedAttempt() const {
    return addSeconds(started_, -kFailedAge);
}

Preferences SimulatedDesktop::preferences() const {
    Preferences preferences;
    const std::vector<ResticJob> jobs = parts_->editor.jobs();
    if (jobs.empty()) return preferences;

    std::vector<Destination> destinations;
    for (const ResticJob& job : jobs) {
        Destination destination;
        destination.id = job.id;
        destination.volumeName = job.name;
        destination.isEncrypted = true;  // every restic repository is
        if (job.id == kJobId) {
            destination.bytesAvailable = 412'000'000'000;
            destination.bytesUsed = 588'000'000'000;
            // Hourly for two weeks, each backup finishing a few minutes after it began and some
            // hours a little late; the newest two hours before the demo starts.
            for (int hour = 14 * 24; hour >= 2; --hour) {
                const double age = hour * kHour + ((hour * 7) % 5) * 2 * kMinute;
                if (switchedOff(age) || away(age)) continue;
                const WallTime end = addSeconds(started_, -age);
                destination.attempts.push_back(addSeconds(end, -(3 + hour % 4) * kMinute));
                destination.snapshots.push_back(end);
            }
            destination.attempts.push_back(failedAttempt());
            destination.lastResult = kFailedExitStatus;
        }
        destinations.push_back(std::move(destination));
    }
    preferences.lastDestination = destinations.front();
    preferences.destinations = std::move(destinations);
    preferences.automaticBackups = jobs.front().automatic;
    return preferences;
}

void SimulatedDesktop::start() {
    if (following_) return;
    following_ = true;
    // The attempt ledger's record of why it failed, as the restic source keeps it.
    shared_.storeFailureReason(kFailureReason, failedAttempt());
    parts_->jobsChanged = parts_->editor.changed.connect([this] { storeSnapshot(); });
    storeSnapshot();
}

void SimulatedDesktop::stop() {
    following_ = false;
    parts_->jobsChanged.disconnect();
}

void SimulatedDesktop::storeSnapshot() {
    if (!following_) return;
    if (parts_->editor.jobs().empty()) {
        shared_.remove();
    } else {
        shared_.store(preferences());
    }
    changed.emit();
}

void SimulatedDesktop::liveStatus(std::function<void(LiveBackupReading)> done) {
    // Read when asked, as a real source reads restic's progress as it arrives.
    const auto jobs = parts_->editor.jobs();
    const bool copying = std::any_of(jobs.begin(), jobs.end(),
                                     [](const ResticJob& job) { return job.id == kJobId; });
    LiveBackupReading reading;
    reading.running = copying;
    if (copying) {
        const double elapsed = std::max(0.0, secondsBetween(started_, clock_.now()));
        const double share =
            std::fmod(elapsed + kOpeningShare * kBackupSeconds, kBackupSeconds) / kBackupSeconds;
        reading.status.running = true;
        reading.status.phase = "Copying";
        reading.status.percent = share;
        reading.timeRemaining = (1.0 - share) * kBackupSeconds;
    }
    main_.post([alive = std::weak_ptr<bool>(alive_), reading, done = std::move(done)] {
        if (!alive.expired()) done(reading);
    });
}

void SimulatedDesktop::startBackup(std::function<void(StartBackupOutcome)> done) {
    // A backup already runs; the request is taken and that backup carries on.
    const bool hasJob = !parts_->editor.jobs().empty();
    main_.post([alive = std::weak_ptr<bool>(alive_), hasJob, done = std::move(done)] {
        if (alive.expired()) return;
        if (hasJob) {
            done(StartBackupOutcome{StartBackupOutcome::Accepted{}});
        } else {
            done(StartBackupOutcome{StartBackupOutcome::LaunchFailed{"No backup is set up"}});
        }
    });
}

FailureReasonLookup& SimulatedDesktop::failureReasons() {
    return parts_->failureReasons;
}
NetworkProbe& SimulatedDesktop::probe() {
    return parts_->probe;
}
BackupVolumes& SimulatedDesktop::volumes() {
    return parts_->volumes;
}
bool SimulatedDesktop::configured() {
    return !jobEditor().jobs().empty();
}

ResticJobEditor& SimulatedDesktop::jobEditor() {
    return parts_->editor;
}

}  // namespace kestrow
