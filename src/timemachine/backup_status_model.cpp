#include "timemachine/backup_status_model.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <type_traits>

#include "app/settings/shared_settings.h"
#include "app/settings/standard_settings.h"
#include "support/ascii_case.h"

namespace kestrow {
namespace {

constexpr std::size_t kHistoryLimit = 8;

const char* const kNoBackupStarted =
    "Time Machine accepted the request but no backup started. Check System Settings ▸ General ▸ "
    "Time Machine.";

// The last-used destination; a file that names none (or an unknown one) but lists destinations
// still has Time Machine configured, so the first listed one stands in.
std::optional<Destination> currentDestination(const std::optional<Preferences>& preferences) {
    if (!preferences) return std::nullopt;
    if (preferences->lastDestination) return preferences->lastDestination;
    if (preferences->destinations && !preferences->destinations->empty())
        return preferences->destinations->front();
    return std::nullopt;
}

}  // namespace

BackupStatusModel::BackupStatusModel(Dependencies dependencies)
    : d_(std::move(dependencies)), backUpNowLog_(d_.log.sink(), LogArea::backUpNow) {}

BackupStatusModel::~BackupStatusModel() {
    stopLivePolling();
    probe_.reset();
}

template <typename F>
std::function<void()> BackupStatusModel::guarded(F f) {
    return [alive = std::weak_ptr<bool>(alive_), f = std::move(f)]() mutable {
        if (!alive.expired()) f();
    };
}

Wording BackupStatusModel::sourceWording() const {
    if (!d_.linuxWording) return Wording::exact();
    const auto name = source.get();
    if (name && name->kind == BackupSourceKind::timeMachine) return Wording::exact();
    return Wording::linux(name ? std::optional(name->name) : std::nullopt);
}

Wording BackupStatusModel::startWording() const {
    const BackupSourceName name = d_.source.name();
    if (!d_.linuxWording || name.kind == BackupSourceKind::timeMachine) return Wording::exact();
    return Wording::linux(name.name);
}

std::optional<bool> BackupStatusModel::runningState() const {
    return liveRunning_ ? *liveRunning_ : preferencesRunning_;
}

void BackupStatusModel::refresh() {
    const WallTime now = d_.clock.now();
    const auto preferences = d_.shared.load();
    destination_ = currentDestination(preferences);
    preferencesRunning_ = preferences ? preferences->backupRunning : std::nullopt;
    automaticBackups_ = preferences ? preferences->automaticBackups : std::nullopt;
    const Destination* destination = destination_ ? &*destination_ : nullptr;
    source.set(destination ? std::optional(d_.source.name()) : std::nullopt);

    lastSuccessful.set(destination ? destination->newestSnapshot() : std::nullopt);
    destinationName.set(destination ? std::optional(destination->volumeName) : std::nullopt);
    isNetworkDestination.set(destination ? std::optional(destination->isNetwork) : std::nullopt);
    oldestBackup.set(destination ? destination->oldestSnapshot() : std::nullopt);
    backupCount.set(destination ? static_cast<int>(destination->snapshots.size()) : 0);
    history.set(destination ? ProtectionStateEvaluator::history(destination->attempts,
                                                                destination->snapshots,
                                                                kHistoryLimit, runningState(), now)
                            : std::vector<ProtectionStateEvaluator::HistoryEntry>{});
    const double thresholdHours = SharedSettings(d_.shared.store()).protectedThresholdHours();
    rebuildRings(destination, now, thresholdHours);

    if (destination != nullptr) {
        refreshFailureReason(*destination);
        if (destination->isNetwork) {
            const auto attached = d_.volumes.attached(*destination);
            backupVolumeAttached.set(attached);
            d_.shared.recordVolumeAttached(attached);
            // Until the probe answers, the last recorded answer stands.
            destinationReachable.set(preferences->destinationReachable);
        } else {
            backupVolumeAttached.set(std::nullopt);
            destinationReachable.set(std::nullopt);
        }
    } else {
        failureReason.set(std::nullopt);
        failureReasonReadable.set(std::nullopt);
        failureReasonAttempt.set(std::nullopt);
        backupVolumeAttached.set(std::nullopt);
        destinationReachable.set(std::nullopt);
    }

    evaluate(destination != nullptr);

    if (destination != nullptr && destination->isNetwork) {
        probeReachability(*destination);
    } else {
        probe_.reset();
        probeInFlight_ = false;
    }
}

void BackupStatusModel::rebuildRings(const Destination* destination, WallTime now,
                                     double thresholdHours) {
    RingKey key;
    if (destination != nullptr) {
        key.snapshots = destination->snapshots;
        key.failures = ProtectionStateEvaluator::failedAttempts(
            destination->attempts, destination->snapshots, runningState(), now);
    }
    key.minute = static_cast<std::int64_t>(
        std::floor(std::chrono::duration<double>(now.time_since_epoch()).count() / 60.0));
    key.thresholdHours = thresholdHours;
    if (ringKey_ == key) return;
    rings.set(RingModel::make(key.snapshots, key.failures, now, thresholdHours, d_.ringGeometry));
    ringKey_ = std::move(key);
}

void BackupStatusModel::refreshFailureReason(const Destination& destination) {
    const auto attempt = destination.newestAttempt();
    const auto snapshot = destination.newestSnapshot();
    const bool unfinishedAttempt = attempt && (!snapshot || *attempt > *snapshot);
    if (!unfinishedAttempt) {
        failureReason.set(std::nullopt);
        failureReasonReadable.set(std::nullopt);
        failureReasonAttempt.set(std::nullopt);
        return;
    }
    if (auto stored = d_.shared.storedFailureReason(*attempt)) {
        failureReason.set(std::move(stored));
        failureReasonReadable.set(true);
        failureReasonAttempt.set(attempt);
        return;
    }
    // A backup still running has nothing to explain yet; ask once it has ended.
    if (lookedUpAttempt_ == attempt || runningState() == true) return;
    lookedUpAttempt_ = attempt;
    failureReason.set(std::nullopt);
    failureReasonReadable.set(std::nullopt);
    failureReasonAttempt.set(attempt);
    d_.source.failureReasons().lookup(
        *attempt, destination.lastResult,
        [this, alive = std::weak_ptr<bool>(alive_), attempt](FailureReasonAnswer answer) {
            if (alive.expired() || failureReasonAttempt.get() != attempt) return;
            if (answer.reason) d_.shared.storeFailureReason(*answer.reason, *attempt);
            failureReason.set(answer.reason);
            failureReasonReadable.set(answer.readable);
            if (d_.shared.setFailureReasonReadable(answer.readable)) {
                if (auto stored = d_.shared.load()) d_.shared.store(std::move(*stored));
            }
            evaluate(destination_.has_value());
        });
}

void BackupStatusModel::setProtectedThresholdHours(std::optional<double> hours) {
    if (d_.shared.setProtectedThresholdHours(hours)) refresh();
}

double BackupStatusModel::protectedThresholdHours() const {
    return SharedSettings(d_.shared.store()).protectedThresholdHours();
}

void BackupStatusModel::evaluate(bool configured) {
    ProtectionStateEvaluator::Facts facts;
    facts.timeMachineConfigured = configured;
    facts.now = d_.clock.now();
    if (destination_) {
        facts.lastSuccessful = destination_->newestSnapshot();
        facts.lastAttempt = destination_->newestAttempt();
        facts.previousAttempt = destination_->previousAttempt();
        facts.lastResult = destination_->lastResult;
    }
    facts.destinationReachable = destinationReachable.get();
    facts.backupRunning = runningState();
    facts.failureReason = failureReason.get();
    facts.failureReasonReadable = failureReasonReadable.get();
    facts.backupVolumeAttached = backupVolumeAttached.get();
    facts.batteryLidSleepDuringBackup =
        StandardSettings(d_.standardStore).batteryLidSleepDuringBackup();
    const auto evaluator = ProtectionStateEvaluator::fromThresholdHours(
        SharedSettings(d_.shared.store()).protectedThresholdHours());
    ProtectionVerdict result = evaluator.evaluate(facts);
    const Wording wording = sourceWording();
    if (!wording.isExact())
        for (auto& reason : result.reasons) reason = wording(reason);
    verdict.set(std::move(result));
    if (d_.notifier != nullptr) d_.notifier->handle(verdict.get());
    evaluated.emit();
}

void BackupStatusModel::probeReachability(const Destination& destination) {
    probe_.reset();  // a newer refresh wins over a probe still in flight
    probeInFlight_ = false;
    if (!destination.networkURL) return;
    if (d_.connectedShare && d_.connectedShare(*destination.networkURL)) {
        destinationReachable.set(true);
        d_.shared.recordReachability(true);
        evaluate(true);
        return;
    }
    const auto host = hostOf(*destination.networkURL);
    if (!host) return;
    probe_ = d_.probe.connect(*host, portOf(*destination.networkURL).value_or(kFileSharingPort),
                              [this, alive = std::weak_ptr<bool>(alive_)](bool reachable) {
                                  if (alive.expired()) return;
                                  // The handle stays until the next probe: it is the one
                                  // calling.
                                  probeInFlight_ = false;
                                  destinationReachable.set(reachable);
                                  d_.shared.recordReachability(reachable);
                                  evaluate(true);
                              });
    probeInFlight_ = probe_ != nullptr;
}

void BackupStatusModel::refreshLiveStatus(std::function<void()> done) {
    d_.source.liveStatus([this, alive = std::weak_ptr<bool>(alive_),
                          done = std::move(done)](LiveBackupReading reading) {
        if (alive.expired()) return;
        applyReading(reading);
        if (done) done();
    });
}

void BackupStatusModel::applyReading(const LiveBackupReading& reading) {
    live.set(reading.status);
    timeRemaining.set(reading.running == true ? reading.timeRemaining : std::nullopt);
    const auto before = runningState();
    liveRunning_ = reading.running;
    // The verdict, history and rings all depend on whether a backup runs.
    if (runningState() != before) refresh();
}

void BackupStatusModel::startLivePolling() {
    if (polling_) return;
    polling_ = true;
    pollOnce();
}

void BackupStatusModel::stopLivePolling() {
    polling_ = false;
    if (pollTask_) d_.mainExecutor.cancel(*pollTask_);
    pollTask_.reset();
}

void BackupStatusModel::pollOnce() {
    refreshLiveStatus([this] {
        if (!polling_ || pollTask_) return;
        pollTask_ = d_.mainExecutor.postAfter(kLivePollSeconds, guarded([this] {
                                                  pollTask_.reset();
                                                  if (polling_) pollOnce();
                                              }));
    });
}

void BackupStatusModel::startBackup() {
    if (starting.get()) return;
    starting.set(true);
    startError.set(std::nullopt);
    d_.source.startBackup([this, alive = std::weak_ptr<bool>(alive_)](StartBackupOutcome outcome) {
        if (alive.expired()) return;
        std::visit(
            [this](const auto& result) {
                using R = std::decay_t<decltype(result)>;
                if constexpr (std::is_same_v<R, StartBackupOutcome::Accepted>) {
                    backUpNowLog_.info("{} accepted the request; waiting for the backup",
                                       d_.source.name().name);
                    checkStarted(d_.clock.monotonic());
                } else if constexpr (std::is_same_v<R, StartBackupOutcome::LaunchFailed>) {
                    backUpNowLog_.error("could not start {}: {}", d_.source.name().name,
                                        result.error);
                    startError.set(startWording()("Could not start Time Machine: ") + result.error);
                    starting.set(false);
                } else {
                    backUpNowLog_.error("{} refused with status {}", d_.source.name().name,
                                        result.status);
                    startError.set(
                        startWording()("Time Machine refused to start a backup (status " +
                                       std::to_string(result.status) + ")"));
                    starting.set(false);
                }
            },
            outcome.value);
    });
}

void BackupStatusModel::checkStarted(double acceptedAt) {
    d_.mainExecutor.postAfter(
        kStartCheckSeconds, guarded([this, acceptedAt] {
            d_.source.liveStatus(
                [this, alive = std::weak_ptr<bool>(alive_), acceptedAt](LiveBackupReading reading) {
                    if (alive.expired()) return;
                    live.set(reading.status);
                    if (reading.running == true) {
                        liveRunning_ = true;
                        timeRemaining.set(reading.timeRemaining);
                        starting.set(false);
                        backUpNowLog_.info("the backup began");
                        refresh();
                        return;
                    }
                    // A little slack, so the check due at exactly 9 s counts as the last one.
                    if (d_.clock.monotonic() - acceptedAt >= kStartLimitSeconds - 1e-6) {
                        if (d_.source.name().kind == BackupSourceKind::timeMachine)
                            backUpNowLog_.error("tmutil exited 0 but no backup began within 9s");
                        else
                            backUpNowLog_.error("{} accepted but no backup began within 9s",
                                                d_.source.name().name);
                        startError.set(startWording()(kNoBackupStarted));
                        starting.set(false);
                        return;
                    }
                    checkStarted(acceptedAt);
                });
        }));
}

namespace {

// What lies between "scheme://" and the path, without any "user@"; nothing without a scheme.
std::optional<std::string> authorityOf(const std::string& url) {
    const auto scheme = url.find("://");
    if (scheme == std::string::npos) return std::nullopt;
    std::string authority = url.substr(scheme + 3);
    authority = authority.substr(0, authority.find_first_of("/?#"));
    if (const auto at = authority.rfind('@'); at != std::string::npos)
        authority = authority.substr(at + 1);
    return authority;
}

}  // namespace

std::optional<std::uint16_t> BackupStatusModel::portOf(const std::string& url) {
    const auto authority = authorityOf(url);
    if (!authority) return std::nullopt;
    const auto close = authority->rfind(']');
    const auto colon = authority->rfind(':');
    if (colon == std::string::npos || (close != std::string::npos && colon < close)) {
        // No port of its own: the scheme's, so a Déjà Dup server over SSH is not probed on
        // the file-sharing port.
        static const std::map<std::string, std::uint16_t> kSchemePorts{
            {"sftp", 22},   {"ssh", 22}, {"dav", 80},  {"http", 80}, {"davs", 443},
            {"https", 443}, {"ftp", 21}, {"afp", 548}, {"smb", 445}, {"cifs", 445}};
        const auto it = kSchemePorts.find(asciiLowercase(url.substr(0, url.find("://"))));
        if (it == kSchemePorts.end()) return std::nullopt;
        return it->second;
    }
    const std::string digits = authority->substr(colon + 1);
    if (digits.empty() || digits.size() > 5 ||
        digits.find_first_not_of("0123456789") != std::string::npos)
        return std::nullopt;
    const int port = std::stoi(digits);
    if (port <= 0 || port > 65535) return std::nullopt;
    return static_cast<std::uint16_t>(port);
}

std::optional<std::string> BackupStatusModel::hostOf(const std::string& url) {
    const auto found = authorityOf(url);
    if (!found) return std::nullopt;
    const std::string& authority = *found;
    std::string host;
    if (!authority.empty() && authority.front() == '[') {
        const auto close = authority.find(']');
        if (close == std::string::npos) return std::nullopt;
        host = authority.substr(1, close - 1);
    } else {
        host = authority.substr(0, authority.find(':'));
    }
    if (host.empty()) return std::nullopt;
    return host;
}

}  // namespace kestrow
