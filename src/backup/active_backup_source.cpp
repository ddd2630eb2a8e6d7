#include "backup/active_backup_source.h"

namespace kestrow {

ActiveBackupSource::ActiveBackupSource(std::vector<BackupSource*> candidates,
                                       SharedPreferences& shared)
    : candidates_(std::move(candidates)), shared_(shared) {
    for (BackupSource* candidate : candidates_)
        connections_.push_back(
            candidate->changed.connect([this, candidate] { candidateChanged(candidate); }));
}

ActiveBackupSource::~ActiveBackupSource() {
    connections_.clear();
    stop();
}

BackupSourceName ActiveBackupSource::name() const {
    if (active_ != nullptr) return active_->name();
    return {BackupSourceKind::restic, ""};
}

std::optional<BackupSourceName> ActiveBackupSource::activeName() const {
    if (active_ == nullptr) return std::nullopt;
    return active_->name();
}

BackupSource* ActiveBackupSource::choose() const {
    for (BackupSource* candidate : candidates_)
        if (candidate->configured()) return candidate;
    return nullptr;
}

void ActiveBackupSource::start() {
    running_ = true;
    recheck();
}

void ActiveBackupSource::stop() {
    running_ = false;
    if (active_ != nullptr) active_->stop();
    active_ = nullptr;
}

void ActiveBackupSource::recheck() {
    if (!running_ || choosing_) return;
    BackupSource* chosen = choose();
    if (chosen == active_) return;
    choosing_ = true;
    if (active_ != nullptr) active_->stop();
    active_ = chosen;
    // The new source stores its own snapshot as it starts; with none, nothing may linger from
    // the one before.
    if (active_ != nullptr)
        active_->start();
    else
        shared_.remove();
    choosing_ = false;
    changed.emit();
}

void ActiveBackupSource::candidateChanged(BackupSource* candidate) {
    if (choosing_) return;
    const BackupSource* before = active_;
    recheck();
    // A switch has told the model already; a change of the source that stays is passed on.
    if (active_ == before && candidate == active_) changed.emit();
}

void ActiveBackupSource::liveStatus(std::function<void(LiveBackupReading)> done) {
    if (active_ != nullptr) return active_->liveStatus(std::move(done));
    done(LiveBackupReading{{}, false, std::nullopt});
}

void ActiveBackupSource::startBackup(std::function<void(StartBackupOutcome)> done) {
    if (active_ != nullptr) return active_->startBackup(std::move(done));
    done({StartBackupOutcome::LaunchFailed{"no backup is set up"}});
}

FailureReasonLookup& ActiveBackupSource::failureReasons() {
    if (active_ != nullptr) return active_->failureReasons();
    return noReasons_;
}

}  // namespace kestrow
