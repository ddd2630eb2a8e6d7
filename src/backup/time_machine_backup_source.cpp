#include "backup/time_machine_backup_source.h"

namespace kestrow {

TimeMachineBackupSource::TimeMachineBackupSource(Dependencies dependencies)
    : d_(std::move(dependencies)) {}

TimeMachineBackupSource::~TimeMachineBackupSource() = default;

bool TimeMachineBackupSource::configured() {
    return d_.settingsFileExists && d_.settingsFileExists();
}

void TimeMachineBackupSource::start() {
    if (reader_ || !d_.makeSettingsReader) return;
    reader_ = d_.makeSettingsReader();
    if (!reader_) return;
    processed_ = reader_->processed.connect([this] { changed.emit(); });
    // The reader has read once already while it was made.
    changed.emit();
}

void TimeMachineBackupSource::stop() {
    processed_ = {};
    reader_.reset();
}

LiveBackupReading TimeMachineBackupSource::readingOf(
    const std::optional<std::string>& statusOutput) {
    const auto details = TimeMachineLiveStatus::statusDetails(statusOutput);
    return {TimeMachineLiveStatus::from(statusOutput), details.running, details.timeRemaining};
}

void TimeMachineBackupSource::liveStatus(std::function<void(LiveBackupReading)> done) {
    d_.tools.status(
        [done = std::move(done)](std::optional<std::string> output) { done(readingOf(output)); });
}

void TimeMachineBackupSource::startBackup(std::function<void(StartBackupOutcome)> done) {
    d_.tools.startBackup(std::move(done));
}

}  // namespace kestrow
