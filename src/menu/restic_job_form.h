#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "backup/backup_source.h"
#include "backup/restic_job.h"

namespace kestrow {

// What the restic job editor shows and how it turns into a request for the restic source. The
// dialog only shows these fields and hands them back; everything that decides lives here.
struct ResticJobForm {
    // The job being edited; empty for a new one. Kept, so the edited job stays the same job.
    std::string id;
    std::string name;
    std::string repository;
    std::vector<std::string> paths;
    // As typed: one restic exclude pattern a line.
    std::string excludes;
    bool initialise = true;
    bool automatic = true;

    // A first job: the home folder, without what is rebuilt by itself or already thrown away.
    static ResticJobForm forNewJob(const std::filesystem::path& home,
                                   const std::filesystem::path& cacheHome,
                                   const std::filesystem::path& dataHome);
    // An existing job to edit. Its repository already exists, so nothing is initialised.
    static ResticJobForm forJob(const ResticJob& job);

    // The patterns, trimmed, without blank lines.
    std::vector<std::string> excludeList() const;
    // Why this cannot be saved with these two password entries, as a sentence for the user;
    // nothing when it can.
    std::optional<std::string> problem(std::string_view password, std::string_view repeated) const;
    // The request for the source. The password only passes through.
    ResticJobEditor::AddRequest request(std::string password) const;
};

// The Backup section's line naming where backups come from.
std::string backupSourceTitle(const std::optional<BackupSourceName>& source);

// What removing a job asks first. Only Kestrow's job and its saved password go; the repository
// and its snapshots stay, and the question says so.
struct RemoveJobQuestion {
    std::string title;
    std::string text;
    std::string confirm;
};
RemoveJobQuestion removeJobQuestion(const ResticJob& job);

}  // namespace kestrow
