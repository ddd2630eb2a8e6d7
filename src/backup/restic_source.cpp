#include "backup/restic_source.h"

#include <algorithm>

#include "backup/backup_failure_kind.h"
#include "backup/restic_failure.h"
#include "backup/restic_repository.h"

namespace kestrow {
namespace {

constexpr double kSameAttemptSeconds = 1.0;

std::optional<std::string> probeURLOf(const ResticRepositoryPlace& place) {
    if (place.local || !place.host) return std::nullopt;
    const std::string host =
        place.host->find(':') != std::string::npos ? "[" + *place.host + "]" : *place.host;
    return place.scheme + "://" + host + (place.port ? ":" + std::to_string(*place.port) : "");
}

// Where a repository lives, without reading the mount table: only an ended attempt needs to tell
// an unplugged drive from a missing repository, and this runs on the live poll.
ResticRepositoryPlace placeOf(const std::string& repository) {
    return ResticRepository::classify(repository, std::string_view());
}

}  // namespace

ResticSource::ResticSource(Dependencies dependencies)
    : d_(std::move(dependencies)),
      store_(d_.dataFolder),
      ledger_(d_.dataFolder / "attempts.jsonl"),
      listing_({d_.clock, d_.restic, d_.secrets, d_.cacheFolder, d_.hostname, d_.log}) {}

ResticSource::~ResticSource() {
    alive_.reset();
    watches_.clear();
    stop();
}

template <typename F>
std::function<void()> ResticSource::guarded(F f) {
    return [alive = std::weak_ptr<bool>(alive_), f = std::move(f)]() mutable {
        if (!alive.expired()) f();
    };
}

bool ResticSource::configured() {
    if (started_) return !jobs_.empty();
    return !store_.load().jobs.empty();
}

void ResticSource::start() {
    if (started_) return;
    started_ = true;
    for (const BackupAttempt& attempt : ledger_.closeAbandoned(d_.clock.now()))
        d_.log.info(
            "Backups: an attempt of job {} begun before Kestrow last stopped is recorded "
            "as interrupted",
            attempt.jobId);
    reloadJobs();
    if (!d_.follow) return;
    automaticTask_ = d_.mainExecutor.postAfter(kAutomaticCheckSeconds, guarded([this] {
                                                   automaticTask_.reset();
                                                   checkAutomatic();
                                               }));
    refreshListings();
}

void ResticSource::stop() {
    if (!started_) return;
    started_ = false;
    if (automaticTask_) d_.mainExecutor.cancel(*automaticTask_);
    if (listingTask_) d_.mainExecutor.cancel(*listingTask_);
    automaticTask_.reset();
    listingTask_.reset();
    releaseWatches();
    queue_.clear();
    if (current_) {
        // Dropping the run stops restic (it removes its own lock); the ledger says why it ended.
        BackupAttempt attempt = current_->attempt;
        current_.reset();
        attempt.end = d_.clock.now();
        attempt.failure = BackupFailureKind::interrupted;
        attempt.error = "Kestrow quit during the backup";
        ledger_.finish(attempt);
    }
}

void ResticSource::reloadJobs() {
    const ResticJobFileReading reading = store_.load();
    for (const std::string& skipped : reading.skipped) d_.log.info("Backups: {}", skipped);
    if (reading.unreadable) {
        // Unknown is not empty: keep the jobs known before rather than forget every backup.
        d_.log.error("Backups: the jobs file cannot be read: {}", *reading.unreadable);
    } else {
        jobs_ = reading.jobs;
    }
    attempts_ = ledger_.load();
    if (started_ && d_.follow) watchRepositories();
    publish();
}

void ResticSource::watchRepositories() {
    releaseWatches();
    watches_.push_back(d_.watcher.watch(store_.file(), guarded([this] { reloadJobs(); })));
    for (const ResticJob& job : jobs_) {
        const auto place = placeOf(job.repository);
        for (const auto& folder : place.watch) {
            watches_.push_back(d_.watcher.watch(folder, guarded([this, id = job.id] {
                                                    if (const auto named = jobNamed(id))
                                                        listing_.refresh(*named,
                                                                         [this](bool listed) {
                                                                             if (listed) publish();
                                                                         });
                                                })));
        }
    }
}

void ResticSource::releaseWatches() {
    // This often runs inside one of these watches' own callbacks (the jobs file changed): they
    // go once that callback has returned, never under it.
    if (watches_.empty()) return;
    auto old =
        std::make_shared<std::vector<std::unique_ptr<FileWatcher::Watch>>>(std::move(watches_));
    watches_.clear();
    d_.mainExecutor.post([old] {});
}

std::optional<ResticJob> ResticSource::jobNamed(const std::string& id) const {
    for (const ResticJob& job : jobs_)
        if (job.id == id) return job;
    return std::nullopt;
}

std::vector<BackupAttempt> ResticSource::attemptsOf(const std::string& jobId) const {
    const auto it = attempts_.find(jobId);
    return it == attempts_.end() ? std::vector<BackupAttempt>{} : it->second;
}

bool ResticSource::running(const std::string& jobId) const {
    return current_ && current_->job.id == jobId;
}

void ResticSource::publish() {
    if (jobs_.empty()) {
        d_.shared.remove();
        changed.emit();
        return;
    }
    std::vector<ResticJobRecord> records;
    for (const ResticJob& job : jobs_) {
        ResticJobRecord record{job, {}, {}, {}, std::nullopt, std::nullopt};
        // The attempt under way is not a past attempt: the live status tells it.
        for (const BackupAttempt& attempt : attemptsOf(job.id))
            if (attempt.end) record.attempts.push_back(attempt);
        if (const auto listing = listing_.cached(job.id)) {
            record.snapshotEnds = listing->ends;
            record.snapshotIds = listing->ids;
            record.listedAt = listing->listedAt;
        }
        record.probeURL = probeURLOf(placeOf(job.repository));
        records.push_back(std::move(record));
    }
    d_.shared.store(ResticPreferences::make(records));
    changed.emit();
}

std::vector<std::string> ResticSource::dueJobs(
    const std::vector<ResticJob>& jobs,
    const std::map<std::string, std::vector<BackupAttempt>>& attempts, WallTime now) {
    std::vector<std::string> due;
    for (const ResticJob& job : jobs) {
        if (!job.automatic) continue;
        const auto it = attempts.find(job.id);
        const bool recent =
            it != attempts.end() &&
            std::any_of(it->second.begin(), it->second.end(), [&](const BackupAttempt& attempt) {
                const double age = secondsBetween(attempt.start, now);
                // A clock set back puts attempts in the future; they must not hold backups off.
                return age >= 0 && age < kAutomaticEverySeconds;
            });
        if (!recent) due.push_back(job.id);
    }
    return due;
}

void ResticSource::checkAutomatic() {
    if (!started_) return;
    // `kestrow backup-now` may have backed a job up from another process since.
    attempts_ = ledger_.load();
    for (const std::string& id : dueJobs(jobs_, attempts_, d_.clock.now())) enqueue(id);
    runNext();
    automaticTask_ = d_.mainExecutor.postAfter(kAutomaticCheckSeconds, guarded([this] {
                                                   automaticTask_.reset();
                                                   checkAutomatic();
                                               }));
}

void ResticSource::refreshListings() {
    for (const ResticJob& job : jobs_)
        listing_.refresh(job, [this](bool listed) {
            if (listed) publish();
        });
    if (listingTask_) d_.mainExecutor.cancel(*listingTask_);
    listingTask_ = d_.mainExecutor.postAfter(kListingEverySeconds, guarded([this] {
                                                 listingTask_.reset();
                                                 if (started_) refreshListings();
                                             }));
}

void ResticSource::startBackup(std::function<void(StartBackupOutcome)> done) {
    StartBackupOutcome outcome{StartBackupOutcome::Accepted{}};
    if (jobs_.empty()) {
        outcome = {StartBackupOutcome::LaunchFailed{"no backup job is set up"}};
    } else {
        for (const ResticJob& job : jobs_) enqueue(job.id);
        runNext();
    }
    d_.mainExecutor.post(guarded([done = std::move(done), outcome] { done(outcome); }));
}

void ResticSource::enqueue(const std::string& jobId) {
    if (running(jobId) || std::find(queue_.begin(), queue_.end(), jobId) != queue_.end()) return;
    queue_.push_back(jobId);
}

void ResticSource::runNext() {
    while (!current_ && !queue_.empty()) {
        const auto job = jobNamed(queue_.front());
        queue_.pop_front();
        if (!job) continue;
        current_ = std::make_unique<Current>();
        current_->job = *job;
        current_->attempt.jobId = job->id;
        current_->attempt.start = d_.clock.now();
        std::string error;
        if (!ledger_.begin(current_->attempt, &error))
            d_.log.error("Backups: the attempt ledger could not be written: {}", error);
        d_.log.info("Backups: backing up \"{}\"", job->name);
        d_.secrets.read(ResticJob::kPasswordService, job->id,
                        [this, alive = std::weak_ptr<bool>(alive_),
                         start = current_->attempt.start](SecretAnswer answer) {
                            if (alive.expired() || !current_ || current_->attempt.start != start)
                                return;
                            runWithPassword(std::move(answer));
                        });
    }
}

void ResticSource::runWithPassword(SecretAnswer answer) {
    if (const auto failure = ResticFailure::fromKeyring(answer.status)) {
        BackupAttempt attempt = current_->attempt;
        attempt.end = d_.clock.now();
        attempt.failure = failure;
        if (!answer.error.empty()) attempt.error = answer.error;
        endCurrent(std::move(attempt));
        return;
    }
    const ResticJob& job = current_->job;
    std::vector<std::string> arguments{"backup", "--json", "--tag", "kestrow"};
    for (const std::string& pattern : job.excludes) {
        arguments.push_back("--exclude");
        arguments.push_back(pattern);
    }
    // Paths after "--", so a folder named like an option is still a folder.
    arguments.push_back("--");
    for (const std::string& path : job.paths) arguments.push_back(path);
    current_->run = d_.restic.run(
        {job.repository, std::move(arguments), std::move(answer.secret).value_or(""), 0.0},
        [this, alive = std::weak_ptr<bool>(alive_)](std::string_view line) {
            if (!alive.expired() && current_) current_->progress.read(line);
        },
        [this, alive = std::weak_ptr<bool>(alive_)](ResticEnding ending) {
            if (!alive.expired() && current_) finishCurrent(ending);
        });
}

void ResticSource::finishCurrent(const ResticEnding& ending) {
    ResticRunFacts facts;
    facts.ending = ending;
    facts.jsonErrors = current_->progress.errors();
    if (const auto& message = current_->progress.exitMessage())
        facts.jsonErrors.push_back(*message);
    const auto place = ResticRepository::classify(current_->job.repository,
                                                  d_.mountInfo ? d_.mountInfo() : std::string());
    if (place.local) {
        std::error_code ec;
        facts.repositoryFolderExists = std::filesystem::exists(place.folder, ec);
        if (place.mountPoint) facts.mountPresent = place.mounted;
    }
    const ResticVerdict verdict = ResticFailure::classify(facts);
    BackupAttempt attempt = current_->attempt;
    attempt.end = d_.clock.now();
    if (ending.kind == ResticEnding::Kind::exited) attempt.exitStatus = ending.exitCode;
    attempt.failure = verdict.failure;
    attempt.error = verdict.error;
    if (!verdict.failure) attempt.snapshot = current_->progress.snapshotId();
    endCurrent(std::move(attempt));
}

void ResticSource::endCurrent(BackupAttempt attempt) {
    std::string error;
    if (!ledger_.finish(attempt, &error))
        d_.log.error("Backups: the attempt ledger could not be written: {}", error);
    if (attempt.failure)
        d_.log.error("Backups: the backup of \"{}\" failed ({}): {}", current_->job.name,
                     backupFailureKindName(*attempt.failure), attempt.error.value_or("no detail"));
    else
        d_.log.info("Backups: the backup of \"{}\" finished", current_->job.name);
    const ResticJob job = current_->job;
    // The run's own callback is on the stack; let it unwind before the handle goes.
    d_.mainExecutor.post([run = std::shared_ptr<ResticCommands::Run>(std::move(current_->run))] {});
    current_.reset();
    attempts_ = ledger_.load();
    attemptEnded.emit(attempt);
    publish();
    if (!attempt.failure && d_.follow)
        listing_.refresh(job, [this](bool listed) {
            if (listed) publish();
        });
    runNext();
}

bool ResticSource::lockedBySomeoneElse(const ResticJob& job) const {
    const auto place = placeOf(job.repository);
    if (!place.local) return false;
    std::error_code ec;
    const auto now = std::filesystem::file_time_type::clock::now();
    for (std::filesystem::directory_iterator it(place.folder / "locks", ec), end; !ec && it != end;
         it.increment(ec)) {
        const auto modified = it->last_write_time(ec);
        if (ec) continue;
        if (std::chrono::duration<double>(now - modified).count() < kLiveLockSeconds) return true;
    }
    return false;
}

void ResticSource::liveStatus(std::function<void(LiveBackupReading)> done) {
    LiveBackupReading reading{{}, false, std::nullopt};
    if (current_) {
        reading = current_->progress.reading();
        reading.running = true;
        reading.status.running = true;
    } else {
        for (const ResticJob& job : jobs_) {
            if (!lockedBySomeoneElse(job)) continue;
            reading.running = true;
            reading.status.running = true;
            break;
        }
    }
    d_.mainExecutor.post(guarded([done = std::move(done), reading] { done(reading); }));
}

void ResticSource::Reasons::lookup(WallTime attempt, std::int64_t,
                                   std::function<void(FailureReasonAnswer)> done) {
    FailureReasonAnswer answer{std::nullopt, true};
    for (const auto& [jobId, attempts] : source_.attempts_) {
        for (const BackupAttempt& recorded : attempts) {
            if (std::abs(secondsBetween(recorded.start, attempt)) > kSameAttemptSeconds) continue;
            if (recorded.failure) answer.reason = ResticFailure::sentence(*recorded.failure);
        }
    }
    source_.d_.mainExecutor.post(
        source_.guarded([done = std::move(done), answer] { done(answer); }));
}

}  // namespace kestrow
