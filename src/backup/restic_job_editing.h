#pragma once

#include <filesystem>
#include <memory>

#include "backup/restic_job.h"
#include "backup/restic_job_store.h"
#include "backup/restic_source.h"
#include "platform/restic_commands.h"
#include "platform/secret_store.h"

namespace kestrow {

// Adds, edits and removes restic jobs for the menu's editor and the command line. A job is saved
// only after restic opened (or, when asked, created) its repository with the password and the
// password is in the keyring, so a saved job is one that can back up; a failed step takes back
// the steps before it.
class ResticJobEditing final : public ResticJobEditor {
public:
    struct Dependencies {
        ResticCommands& restic;
        SecretStore& secrets;
        ResticJobStore store;
        // Told after every change of the jobs file (the source reads it again).
        std::function<void()> jobsChanged;
        std::filesystem::path home;
        std::filesystem::path dataHome;
        std::filesystem::path cacheHome;
        Logger log;
    };

    static constexpr double kCheckTimeLimitSeconds = 120.0;

    explicit ResticJobEditing(Dependencies dependencies);
    ~ResticJobEditing() override;

    std::vector<ResticJob> jobs() const override;
    void add(AddRequest request, std::function<void(AddOutcome)> done) override;
    void remove(const std::string& idOrName, std::function<void(std::string)> done) override;

private:
    struct Adding;
    void openRepository(std::shared_ptr<Adding> adding);
    void storePassword(std::shared_ptr<Adding> adding);
    void initialise(std::shared_ptr<Adding> adding);
    void save(std::shared_ptr<Adding> adding);
    void fail(std::shared_ptr<Adding> adding, std::string error);

    Dependencies d_;
    std::vector<std::unique_ptr<ResticCommands::Run>> runs_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace kestrow
