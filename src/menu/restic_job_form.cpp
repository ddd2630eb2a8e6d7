#include "menu/restic_job_form.h"

#include <algorithm>

namespace kestrow {
namespace {

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v';
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && isSpace(text.front())) text.remove_prefix(1);
    while (!text.empty() && isSpace(text.back())) text.remove_suffix(1);
    return text;
}

}  // namespace

ResticJobForm ResticJobForm::forNewJob(const std::filesystem::path& home,
                                       const std::filesystem::path& cacheHome,
                                       const std::filesystem::path& dataHome) {
    ResticJobForm form;
    form.name = "Home folder";
    form.paths = {home.string()};
    // Caches refill by themselves, the Trash was thrown away on purpose, and Kestrow's own
    // records describe the backups rather than belong in them.
    form.excludes = cacheHome.string() + "\n" + (dataHome / "Trash").string() + "\n" +
                    (dataHome / "kestrow").string();
    return form;
}

ResticJobForm ResticJobForm::forJob(const ResticJob& job) {
    ResticJobForm form;
    form.id = job.id;
    form.name = job.name;
    form.repository = job.repository;
    form.paths = job.paths;
    for (const std::string& pattern : job.excludes) {
        if (!form.excludes.empty()) form.excludes += '\n';
        form.excludes += pattern;
    }
    form.initialise = false;
    form.automatic = job.automatic;
    return form;
}

std::vector<std::string> ResticJobForm::excludeList() const {
    std::vector<std::string> patterns;
    std::string_view rest = excludes;
    while (!rest.empty()) {
        const std::size_t end = rest.find('\n');
        const std::string_view line = trimmed(rest.substr(0, end));
        if (!line.empty()) patterns.emplace_back(line);
        if (end == std::string_view::npos) break;
        rest.remove_prefix(end + 1);
    }
    return patterns;
}

std::optional<std::string> ResticJobForm::problem(std::string_view password,
                                                  std::string_view repeated) const {
    if (trimmed(name).empty()) return "Give the backup a name.";
    if (trimmed(repository).empty()) return "Choose where the backup goes.";
    const bool anyPath = std::any_of(
        paths.begin(), paths.end(), [](const std::string& path) { return !trimmed(path).empty(); });
    if (!anyPath) return "Choose at least one folder to back up.";
    if (password.empty()) return "Enter the repository's password.";
    if (password != repeated) return "The two passwords are not the same.";
    return std::nullopt;
}

ResticJobEditor::AddRequest ResticJobForm::request(std::string password) const {
    ResticJobEditor::AddRequest request;
    request.job.id = id;
    request.job.name = std::string(trimmed(name));
    request.job.repository = std::string(trimmed(repository));
    for (const std::string& path : paths) {
        const std::string_view kept = trimmed(path);
        if (!kept.empty()) request.job.paths.emplace_back(kept);
    }
    request.job.excludes = excludeList();
    request.job.automatic = automatic;
    request.password = std::move(password);
    request.initialise = initialise;
    return request;
}

std::string backupSourceTitle(const std::optional<BackupSourceName>& source) {
    if (!source || source->name.empty()) return "No backup is set up";
    return "Backups by " + source->name;
}

RemoveJobQuestion removeJobQuestion(const ResticJob& job) {
    return {"Remove the backup “" + job.name + "”?",
            "Kestrow stops backing up to " + job.repository +
                " and forgets its password. The repository and its snapshots stay where they "
                "are.",
            "Remove"};
}

}  // namespace kestrow
