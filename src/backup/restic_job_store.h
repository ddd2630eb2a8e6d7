#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "backup/restic_job.h"

namespace kestrow {

// What a reading of the jobs file found.
struct ResticJobFileReading {
    std::vector<ResticJob> jobs;
    // Jobs or fields passed over, one sentence each, for the log ("job 2 has no repository").
    std::vector<std::string> skipped;
    // Why the file as a whole could not be read; its jobs are then unknown, not absent.
    std::optional<std::string> unreadable;
};

// The restic jobs, kept in "jobs.json" in the folder it is given ($XDG_DATA_HOME/kestrow/backups).
// People edit this file by hand, so reading is tolerant: unknown keys are ignored, a field of the
// wrong type takes its default, and a job that lacks its id, name or repository is skipped and
// reported while every other job is kept. A file that cannot be read at all is never overwritten:
// the next save sets it aside beside itself first, and says where.
class ResticJobStore {
public:
    explicit ResticJobStore(std::filesystem::path folder);

    std::filesystem::path file() const { return folder_ / "jobs.json"; }

    // No file: no jobs, nothing to report.
    ResticJobFileReading load() const;

    struct SaveOutcome {
        bool saved = false;
        std::string error;  // when not saved
        // Where an unreadable file went before this save replaced it.
        std::optional<std::filesystem::path> setAside;
    };
    SaveOutcome save(const std::vector<ResticJob>& jobs) const;

    // The file's text, read as load() reads it (no file system).
    static ResticJobFileReading parse(std::string_view text);
    static std::string serialise(const std::vector<ResticJob>& jobs);

    // A new job's id: random, and never changed afterwards (the keyring item is named by it).
    static std::string makeId();

    // Empty paths: the home folder. Empty excludes: the caches, the Trash folders and Kestrow's
    // own data, none of which anybody wants back after a loss.
    static ResticJob withDefaults(ResticJob job, const std::filesystem::path& home,
                                  const std::filesystem::path& dataHome,
                                  const std::filesystem::path& cacheHome);

    // Why this job cannot be saved beside `others` (the jobs already kept, which may include an
    // older version of it under the same id), as a sentence for the user; nothing when it can.
    static std::optional<std::string> validate(const ResticJob& job,
                                               const std::vector<ResticJob>& others);

private:
    std::filesystem::path folder_;
};

}  // namespace kestrow
