#include "backup/restic_snapshot_listing.h"

#include <nlohmann/json.hpp>

#include "backup/restic_snapshots.h"
#include "support/atomic_file.h"
#include "support/iso_date.h"

namespace kestrow {
namespace {

constexpr std::size_t kLargestCacheFile = 16 * 1024 * 1024;

}  // namespace

ResticSnapshotListing::ResticSnapshotListing(Dependencies dependencies)
    : d_(std::move(dependencies)) {}

ResticSnapshotListing::~ResticSnapshotListing() = default;

std::filesystem::path ResticSnapshotListing::cacheFile(const std::string& jobId) const {
    return d_.cacheFolder / ("snapshots-" + jobId + ".json");
}

std::optional<ResticSnapshotListing::Listing> ResticSnapshotListing::cached(
    const std::string& jobId) {
    if (const auto it = listings_.find(jobId); it != listings_.end()) return it->second;
    const auto text = readFile(cacheFile(jobId), nullptr, kLargestCacheFile);
    if (!text) return std::nullopt;
    auto listing = parse(*text);
    if (listing) listings_[jobId] = *listing;
    return listing;
}

void ResticSnapshotListing::refresh(const ResticJob& job, std::function<void(bool)> done) {
    if (runs_.contains(job.id)) return;
    runs_[job.id] = nullptr;  // taken while the keyring answers
    d_.secrets.read(
        ResticJob::kPasswordService, job.id,
        [this, alive = std::weak_ptr<bool>(alive_), job, done](SecretAnswer answer) mutable {
            if (alive.expired()) return;
            if (answer.status != SecretAnswer::Status::done || !answer.secret) {
                runs_.erase(job.id);
                if (done) done(false);
                return;
            }
            auto output = std::make_shared<std::string>();
            runs_[job.id] = d_.restic.run(
                {job.repository,
                 {"snapshots", "--json", "--no-lock"},
                 std::move(*answer.secret),
                 kListTimeLimitSeconds},
                [output](std::string_view line) {
                    output->append(line);
                    output->push_back('\n');
                },
                [this, alive, id = job.id, output, done](ResticEnding ending) {
                    if (alive.expired()) return;
                    // The run reports last; its handle can go now.
                    auto run = std::move(runs_[id]);
                    runs_.erase(id);
                    listed(id, *output, ending, done);
                });
        });
}

void ResticSnapshotListing::listed(const std::string& jobId, const std::string& output,
                                   const ResticEnding& ending,
                                   const std::function<void(bool)>& done) {
    const bool ok = ending.kind == ResticEnding::Kind::exited && ending.exitCode == 0;
    const auto snapshots = ok ? ResticSnapshots::parse(output) : std::nullopt;
    if (!snapshots) {
        d_.log.info("Backups: could not list the snapshots of job {}", jobId);
        if (done) done(false);
        return;
    }
    Listing listing{{}, {}, d_.clock.now()};
    for (const ResticSnapshot& snapshot : *snapshots) {
        if (!d_.hostname.empty() && snapshot.hostname != d_.hostname) continue;
        listing.ids.push_back(snapshot.id);
        listing.ends.push_back(snapshot.end);
    }
    listings_[jobId] = listing;
    if (!writeFileAtomically(cacheFile(jobId), serialise(listing)))
        d_.log.info("Backups: could not keep the snapshot listing in {}", d_.cacheFolder.string());
    if (done) done(true);
}

void ResticSnapshotListing::forget(const std::string& jobId) {
    listings_.erase(jobId);
    runs_.erase(jobId);
    std::error_code ec;
    std::filesystem::remove(cacheFile(jobId), ec);
}

std::string ResticSnapshotListing::serialise(const Listing& listing) {
    nlohmann::json snapshots = nlohmann::json::array();
    for (std::size_t i = 0; i < listing.ids.size() && i < listing.ends.size(); ++i)
        snapshots.push_back({{"id", listing.ids[i]}, {"end", formatIsoDate(listing.ends[i])}});
    return nlohmann::json{{"listedAt", formatIsoDate(listing.listedAt)}, {"snapshots", snapshots}}
        .dump();
}

std::optional<ResticSnapshotListing::Listing> ResticSnapshotListing::parse(std::string_view text) {
    const auto json = nlohmann::json::parse(text, nullptr, false);
    if (!json.is_object() || !json.contains("listedAt") || !json["listedAt"].is_string())
        return std::nullopt;
    const auto listedAt = parseIsoDate(json["listedAt"].get<std::string>());
    if (!listedAt) return std::nullopt;
    Listing listing{{}, {}, *listedAt};
    if (json.contains("snapshots") && json["snapshots"].is_array()) {
        for (const auto& entry : json["snapshots"]) {
            if (!entry.is_object() || !entry.contains("id") || !entry["id"].is_string() ||
                !entry.contains("end") || !entry["end"].is_string())
                continue;
            const auto end = parseIsoDate(entry["end"].get<std::string>());
            if (!end) continue;
            listing.ids.push_back(entry["id"].get<std::string>());
            listing.ends.push_back(*end);
        }
    }
    return listing;
}

}  // namespace kestrow
