#include "platform/demo/demo_job_editor.h"

#include <algorithm>

namespace kestrow {
namespace {

bool blank(const std::string& text) {
    return text.find_first_not_of(" \t\r\n") == std::string::npos;
}

}  // namespace

DemoJobEditor::DemoJobEditor(Executor& main, std::string home, std::vector<ResticJob> jobs)
    : main_(main), home_(std::move(home)), jobs_(std::move(jobs)) {}

DemoJobEditor::~DemoJobEditor() = default;

std::vector<std::string> DemoJobEditor::defaultExcludes() const {
    return {home_ + "/.cache", home_ + "/.local/share/Trash"};
}

std::string DemoJobEditor::refusal(const ResticJob& job, const std::string& password) const {
    if (blank(job.name)) return "Give the backup a name.";
    const bool taken = std::any_of(jobs_.begin(), jobs_.end(),
                                   [&](const ResticJob& other) { return other.name == job.name; });
    if (taken) return "There is already a backup named " + job.name + ".";
    if (blank(job.repository)) return "Choose where the backup goes.";
    for (const std::string& path : job.paths) {
        if (path.empty() || path.front() != '/')
            return "Choose each folder to back up by its full path, not " + path + ".";
    }
    if (password.empty()) return "Enter a password for the backup.";
    return {};
}

void DemoJobEditor::add(AddRequest request, std::function<void(AddOutcome)> done) {
    answer([this, request = std::move(request), done = std::move(done)]() mutable {
        ResticJob job = std::move(request.job);
        const std::string error = refusal(job, request.password);
        // Nothing here can use the password; it does not outlive the request.
        std::fill(request.password.begin(), request.password.end(), '\0');
        request.password.clear();
        if (!error.empty()) {
            if (done) done(AddOutcome{std::nullopt, error});
            return;
        }
        job.id = "demo-job-" + std::to_string(++made_);
        if (job.paths.empty()) job.paths = defaultPaths();
        if (job.excludes.empty()) job.excludes = defaultExcludes();
        jobs_.push_back(job);
        changed.emit();
        if (done) done(AddOutcome{job.id, {}});
    });
}

void DemoJobEditor::remove(const std::string& idOrName,
                           std::function<void(std::string error)> done) {
    answer([this, idOrName, done = std::move(done)] {
        const auto found = std::find_if(jobs_.begin(), jobs_.end(), [&](const ResticJob& job) {
            return job.id == idOrName || job.name == idOrName;
        });
        if (found == jobs_.end()) {
            if (done) done("There is no backup named " + idOrName + ".");
            return;
        }
        jobs_.erase(found);
        changed.emit();
        if (done) done({});
    });
}

void DemoJobEditor::answer(std::function<void()> reply) {
    main_.post([alive = std::weak_ptr<bool>(alive_), reply = std::move(reply)] {
        if (!alive.expired()) reply();
    });
}

}  // namespace kestrow
