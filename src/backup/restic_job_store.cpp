#include "backup/restic_job_store.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <random>
#include <system_error>

#include "support/atomic_file.h"
#include "support/file_set_aside.h"
#include "support/nesting_depth.h"

namespace kestrow {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

// A hand-kept list of jobs is a few kilobytes; anything near this is not a jobs file.
constexpr std::size_t kLargestJobsFile = 4 * 1024 * 1024;

std::optional<std::string> textAt(const json& job, const char* key) {
    const auto found = job.find(key);
    if (found == job.end() || !found->is_string()) return std::nullopt;
    auto text = found->get<std::string>();
    if (text.empty()) return std::nullopt;
    return text;
}

std::vector<std::string> textsAt(const json& job, const char* key, const std::string& jobName,
                                 std::vector<std::string>& skipped) {
    std::vector<std::string> texts;
    const auto found = job.find(key);
    if (found == job.end()) return texts;
    if (!found->is_array()) {
        skipped.push_back(
            fmt::format("job \"{}\": \"{}\" is not a list; using the default", jobName, key));
        return texts;
    }
    for (const auto& item : *found) {
        if (item.is_string() && !item.get_ref<const std::string&>().empty()) {
            texts.push_back(item.get<std::string>());
        } else {
            skipped.push_back(
                fmt::format("job \"{}\": an entry of \"{}\" is not a text", jobName, key));
        }
    }
    return texts;
}

}  // namespace

ResticJobStore::ResticJobStore(fs::path folder) : folder_(std::move(folder)) {}

ResticJobFileReading ResticJobStore::parse(std::string_view text) {
    ResticJobFileReading reading;
    if (!jsonNestingWithin(text)) {
        reading.unreadable = "it nests too deeply";
        return reading;
    }
    const json document = json::parse(text, nullptr, false);
    const json* list = nullptr;
    if (document.is_array()) {
        list = &document;
    } else if (document.is_object()) {
        const auto jobs = document.find("jobs");
        if (jobs == document.end()) return reading;  // an object without jobs: none yet
        list = &*jobs;
    }
    if (list == nullptr || !list->is_array()) {
        reading.unreadable = document.is_discarded() ? "it is not JSON" : "it holds no job list";
        return reading;
    }
    for (std::size_t index = 0; index < list->size(); ++index) {
        const json& entry = (*list)[index];
        if (!entry.is_object()) {
            reading.skipped.push_back(fmt::format("job {} is not an object; skipped", index + 1));
            continue;
        }
        ResticJob job;
        const auto id = textAt(entry, "id");
        const auto name = textAt(entry, "name");
        const auto repository = textAt(entry, "repository");
        const std::string label = name ? *name : fmt::format("{}", index + 1);
        if (!id || !name || !repository) {
            reading.skipped.push_back(fmt::format("job \"{}\" has no {}; skipped", label,
                                                  !id     ? "id"
                                                  : !name ? "name"
                                                          : "repository"));
            continue;
        }
        bool taken = false;
        for (const auto& kept : reading.jobs) taken = taken || kept.id == *id;
        if (taken) {
            reading.skipped.push_back(
                fmt::format("job \"{}\" repeats the id of an earlier job; skipped", label));
            continue;
        }
        job.id = *id;
        job.name = *name;
        job.repository = *repository;
        job.paths = textsAt(entry, "paths", label, reading.skipped);
        job.excludes = textsAt(entry, "excludes", label, reading.skipped);
        if (const auto automatic = entry.find("automatic"); automatic != entry.end()) {
            if (automatic->is_boolean()) {
                job.automatic = automatic->get<bool>();
            } else {
                reading.skipped.push_back(fmt::format(
                    "job \"{}\": \"automatic\" is not true or false; using true", label));
            }
        }
        reading.jobs.push_back(std::move(job));
    }
    return reading;
}

ResticJobFileReading ResticJobStore::load() const {
    std::error_code missing;
    if (!fs::exists(fs::symlink_status(file(), missing))) return {};
    std::string error;
    const auto text = readFile(file(), &error, kLargestJobsFile);
    if (!text) {
        ResticJobFileReading reading;
        reading.unreadable = error.empty() ? "it is larger than any jobs file" : error;
        return reading;
    }
    return parse(*text);
}

std::string ResticJobStore::serialise(const std::vector<ResticJob>& jobs) {
    json list = json::array();
    for (const auto& job : jobs) {
        list.push_back({{"id", job.id},
                        {"name", job.name},
                        {"repository", job.repository},
                        {"paths", job.paths},
                        {"excludes", job.excludes},
                        {"automatic", job.automatic}});
    }
    // A name typed in a foreign encoding is written with replacement characters, never refused.
    return json{{"jobs", list}}.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
}

ResticJobStore::SaveOutcome ResticJobStore::save(const std::vector<ResticJob>& jobs) const {
    SaveOutcome outcome;
    if (load().unreadable) {
        std::string error;
        outcome.setAside = setFileAside(file(), &error);
        if (!outcome.setAside) {
            outcome.error = fmt::format("the unreadable jobs file {} could not be set aside: {}",
                                        file().string(), error);
            return outcome;
        }
    }
    outcome.saved = writeFileAtomically(file(), serialise(jobs), &outcome.error);
    return outcome;
}

std::string ResticJobStore::makeId() {
    std::random_device device;
    std::uniform_int_distribution<unsigned> byte(0, 255);
    std::string id;
    for (int i = 0; i < 12; ++i) id += fmt::format("{:02x}", byte(device));
    return id;
}

ResticJob ResticJobStore::withDefaults(ResticJob job, const fs::path& home,
                                       const fs::path& dataHome, const fs::path& cacheHome) {
    if (job.paths.empty()) job.paths = {home.string()};
    if (job.excludes.empty()) {
        job.excludes = {
            cacheHome.string(),
            (dataHome / "Trash").string(),
            ".Trash-*",  // the Trash of every other volume under the paths
            (dataHome / "kestrow").string(),
            (dataHome / "Orvel").string(),  // the disk-size history, rebuilt nightly
        };
    }
    return job;
}

std::optional<std::string> ResticJobStore::validate(const ResticJob& job,
                                                    const std::vector<ResticJob>& others) {
    if (job.name.find_first_not_of(" \t") == std::string::npos) {
        return "The backup needs a name.";
    }
    for (const auto& other : others) {
        if (other.id != job.id && other.name == job.name) {
            return fmt::format("A backup named \"{}\" already exists.", job.name);
        }
    }
    if (job.repository.find_first_not_of(" \t") == std::string::npos) {
        return "The backup needs a repository to back up to.";
    }
    for (const auto& path : job.paths) {
        if (!fs::path(path).is_absolute()) {
            return fmt::format("\"{}\" is not a full path; it must start with /.", path);
        }
        std::error_code error;
        if (!fs::exists(path, error)) {
            return fmt::format("\"{}\" does not exist.", path);
        }
    }
    return std::nullopt;
}

}  // namespace kestrow
