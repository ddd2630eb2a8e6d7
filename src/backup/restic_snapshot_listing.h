#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "backup/restic_job.h"
#include "platform/restic_commands.h"
#include "platform/secret_store.h"
#include "support/clock.h"
#include "support/logger.h"

namespace kestrow {

// The snapshots of each job's repository as restic lists them, kept in a small cache file per
// job so that a one-shot report and a fresh start show them at once, without the keyring or
// restic. Listing runs restic with --no-lock: it never blocks a backup and works on a read-only
// drive.
class ResticSnapshotListing {
public:
    struct Listing {
        std::vector<std::string> ids;
        std::vector<WallTime> ends;  // oldest first
        WallTime listedAt;
    };
    struct Dependencies {
        const Clock& clock;
        ResticCommands& restic;
        SecretStore& secrets;
        std::filesystem::path cacheFolder;
        std::string hostname;  // only this machine's snapshots protect it
        Logger log;
    };

    static constexpr double kListTimeLimitSeconds = 120.0;

    explicit ResticSnapshotListing(Dependencies dependencies);
    ~ResticSnapshotListing();
    ResticSnapshotListing(const ResticSnapshotListing&) = delete;
    ResticSnapshotListing& operator=(const ResticSnapshotListing&) = delete;

    // The last listing of the job, from memory or its cache file.
    std::optional<Listing> cached(const std::string& jobId);
    // Lists the job's repository again; `done(true)` after a new listing was kept. A listing of
    // the same job still under way is left to finish instead.
    void refresh(const ResticJob& job, std::function<void(bool listed)> done);
    // Forgets a removed job's listing and its cache file.
    void forget(const std::string& jobId);

    // The cache file's text, both ways (for the tests and the fuzzer).
    static std::string serialise(const Listing& listing);
    static std::optional<Listing> parse(std::string_view text);

private:
    std::filesystem::path cacheFile(const std::string& jobId) const;
    void listed(const std::string& jobId, const std::string& output, const ResticEnding& ending,
                const std::function<void(bool)>& done);

    Dependencies d_;
    std::map<std::string, Listing> listings_;
    std::map<std::string, std::unique_ptr<ResticCommands::Run>> runs_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace kestrow
