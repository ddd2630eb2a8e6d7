#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kestrow {

// One backup that Kestrow runs with restic: what goes where. The repository's password is not
// here; it lives in the keyring under kPasswordService and the job's id.
struct ResticJob {
    static constexpr const char* kPasswordService = "bar.vemb.orvel.restic";

    std::string id;          // stable, made when the job is added
    std::string name;        // the user's name for it; shown as the destination's name
    std::string repository;  // a folder, a removable drive's folder, or any repository restic takes
    std::vector<std::string> paths;  // what is backed up; default: the home folder
    std::vector<std::string>
        excludes;           // restic exclude patterns; default: caches, Trash, Kestrow's data
    bool automatic = true;  // backs up by itself every hour

    bool operator==(const ResticJob&) const = default;
};

// What the menu's job editor and `kestrow backups add/remove` ask of the restic source.
class ResticJobEditor {
public:
    struct AddRequest {
        ResticJob job;         // `id` is made by the editor; empty paths/excludes take the defaults
        std::string password;  // goes to the keyring, never to a file of ours
        bool initialise = false;  // create the repository when the location holds none
    };
    struct AddOutcome {
        std::optional<std::string> id;  // the new job's id, when it was added
        std::string error;              // otherwise why not, as a sentence for the user
    };

    virtual ~ResticJobEditor() = default;
    virtual std::vector<ResticJob> jobs() const = 0;
    // Checks the job (name, repository, paths), stores the password, initialises the repository
    // when asked and it is empty, then saves the job. Nothing is saved when a step fails.
    virtual void add(AddRequest request, std::function<void(AddOutcome)> done) = 0;
    // Removes the job and its password; the repository and its snapshots are left alone. `done`
    // gets an empty string on success, else why not.
    virtual void remove(const std::string& idOrName,
                        std::function<void(std::string error)> done) = 0;
};

}  // namespace kestrow
