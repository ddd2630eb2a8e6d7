#include "backup/restic_job_editing.h"

#include <algorithm>

#include "backup/restic_failure.h"
#include "backup/restic_repository.h"

namespace kestrow {
namespace {

std::string keyringSentence(const SecretAnswer& answer) {
    if (const auto kind = ResticFailure::fromKeyring(answer.status))
        if (const auto sentence = ResticFailure::sentence(*kind))
            return "The password could not be stored: " + *sentence;
    return "The password could not be stored in the keyring";
}

}  // namespace

struct ResticJobEditing::Adding {
    ResticJob job;
    std::string password;
    bool initialise = false;
    bool replacing = false;  // an edit: the job keeps its id and its place
    bool passwordStored = false;
    std::function<void(AddOutcome)> done;
    std::string output;
};

ResticJobEditing::ResticJobEditing(Dependencies dependencies) : d_(std::move(dependencies)) {}

ResticJobEditing::~ResticJobEditing() = default;

std::vector<ResticJob> ResticJobEditing::jobs() const {
    return d_.store.load().jobs;
}

void ResticJobEditing::add(AddRequest request, std::function<void(AddOutcome)> done) {
    auto adding = std::make_shared<Adding>();
    adding->job =
        ResticJobStore::withDefaults(std::move(request.job), d_.home, d_.dataHome, d_.cacheHome);
    adding->password = std::move(request.password);
    adding->initialise = request.initialise;
    adding->done = std::move(done);
    const auto reading = d_.store.load();
    adding->replacing = !adding->job.id.empty() &&
                        std::any_of(reading.jobs.begin(), reading.jobs.end(),
                                    [&](const ResticJob& job) { return job.id == adding->job.id; });
    if (!adding->replacing) adding->job.id = ResticJobStore::makeId();
    if (reading.unreadable)
        return fail(adding, "The backup jobs file cannot be read: " + *reading.unreadable);
    if (auto problem = ResticJobStore::validate(adding->job, reading.jobs))
        return fail(adding, *problem);
    if (adding->password.empty()) return fail(adding, "Enter the repository's password");
    // restic must open the repository with this password before it replaces anything in the
    // keyring, so a mistyped password never overwrites one that works.
    openRepository(adding);
}

void ResticJobEditing::storePassword(std::shared_ptr<Adding> adding) {
    d_.secrets.write(ResticJob::kPasswordService, adding->job.id, adding->password,
                     [this, alive = std::weak_ptr<bool>(alive_), adding](SecretAnswer answer) {
                         if (alive.expired()) return;
                         if (answer.status != SecretAnswer::Status::done)
                             return fail(adding, keyringSentence(answer));
                         adding->passwordStored = true;
                         save(adding);
                     });
}

void ResticJobEditing::openRepository(std::shared_ptr<Adding> adding) {
    adding->output.clear();
    runs_.push_back(d_.restic.run(
        {adding->job.repository,
         {"snapshots", "--json", "--no-lock"},
         adding->password,
         kCheckTimeLimitSeconds},
        [](std::string_view) {},
        [this, alive = std::weak_ptr<bool>(alive_), adding](ResticEnding ending) {
            if (alive.expired()) return;
            if (ending.kind == ResticEnding::Kind::exited && ending.exitCode == 0)
                return storePassword(adding);
            ResticRunFacts facts;
            facts.ending = ending;
            const auto place = ResticRepository::classify(adding->job.repository);
            if (place.local) {
                std::error_code ec;
                facts.repositoryFolderExists = std::filesystem::exists(place.folder, ec);
                if (place.mountPoint) facts.mountPresent = place.mounted;
            }
            const ResticVerdict verdict = ResticFailure::classify(facts);
            if (verdict.failure == BackupFailureKind::repositoryNotFound && adding->initialise)
                return initialise(adding);
            const auto sentence =
                verdict.failure ? ResticFailure::sentence(*verdict.failure) : std::nullopt;
            fail(adding, sentence.value_or("restic could not open the repository: " +
                                           verdict.error.value_or("no reason given")));
        }));
}

void ResticJobEditing::initialise(std::shared_ptr<Adding> adding) {
    // A missing local folder is made by restic itself, so a fresh drive folder just works.
    runs_.push_back(d_.restic.run(
        {adding->job.repository, {"init"}, adding->password, kCheckTimeLimitSeconds},
        [](std::string_view) {},
        [this, alive = std::weak_ptr<bool>(alive_), adding](ResticEnding ending) {
            if (alive.expired()) return;
            if (ending.kind == ResticEnding::Kind::exited && ending.exitCode == 0) {
                d_.log.info("Backups: created the repository for \"{}\"", adding->job.name);
                return storePassword(adding);
            }
            fail(adding, "The repository could not be created: " +
                             (ending.errorText.empty() ? std::string("restic gave no reason")
                                                       : ending.errorText));
        }));
}

void ResticJobEditing::save(std::shared_ptr<Adding> adding) {
    auto reading = d_.store.load();
    if (reading.unreadable)
        return fail(adding, "The backup jobs file cannot be read: " + *reading.unreadable);
    if (auto problem = ResticJobStore::validate(adding->job, reading.jobs))
        return fail(adding, *problem);
    const auto existing =
        std::find_if(reading.jobs.begin(), reading.jobs.end(),
                     [&](const ResticJob& job) { return job.id == adding->job.id; });
    if (existing != reading.jobs.end())
        *existing = adding->job;
    else
        reading.jobs.push_back(adding->job);
    const auto saved = d_.store.save(reading.jobs);
    if (!saved.saved) return fail(adding, "The backup job could not be saved: " + saved.error);
    adding->password.clear();
    d_.log.info("Backups: added the job \"{}\"", adding->job.name);
    if (d_.jobsChanged) d_.jobsChanged();
    adding->done(AddOutcome{adding->job.id, {}});
}

void ResticJobEditing::fail(std::shared_ptr<Adding> adding, std::string error) {
    adding->password.clear();
    // A new job's password goes with the job that will not be saved. An edited job keeps its
    // item: the password in it opened the repository either way.
    if (adding->passwordStored && !adding->replacing)
        d_.secrets.remove(ResticJob::kPasswordService, adding->job.id, [](SecretAnswer) {});
    adding->done(AddOutcome{std::nullopt, std::move(error)});
}

void ResticJobEditing::remove(const std::string& idOrName, std::function<void(std::string)> done) {
    auto reading = d_.store.load();
    if (reading.unreadable)
        return done("The backup jobs file cannot be read: " + *reading.unreadable);
    const auto it = std::find_if(
        reading.jobs.begin(), reading.jobs.end(),
        [&](const ResticJob& job) { return job.id == idOrName || job.name == idOrName; });
    if (it == reading.jobs.end()) return done("There is no backup job \"" + idOrName + "\"");
    const std::string id = it->id;
    const std::string name = it->name;
    reading.jobs.erase(it);
    const auto saved = d_.store.save(reading.jobs);
    if (!saved.saved) return done("The backup job could not be removed: " + saved.error);
    d_.log.info("Backups: removed the job \"{}\"; its repository is left as it is", name);
    if (d_.jobsChanged) d_.jobsChanged();
    d_.secrets.remove(
        ResticJob::kPasswordService, id,
        [done = std::move(done), alive = std::weak_ptr<bool>(alive_)](SecretAnswer answer) {
            if (answer.status == SecretAnswer::Status::done ||
                answer.status == SecretAnswer::Status::notFound)
                return done({});
            // The job is gone either way; the password left behind is named.
            done("The job was removed, but its password is still in the keyring");
        });
}

}  // namespace kestrow
