#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "backup/restic_job.h"
#include "support/executor.h"
#include "support/signal.h"

namespace kestrow {

// The demo's restic jobs, kept in memory only, so the menu's job editor can be tried without
// touching the user's jobs, keyring or disks. A password handed in is checked for presence and
// then dropped: the demo has no repository to open with it. Answers come later on the main
// executor, as the real editor's do.
class DemoJobEditor final : public ResticJobEditor {
public:
    DemoJobEditor(Executor& main, std::string home, std::vector<ResticJob> jobs);
    ~DemoJobEditor() override;
    DemoJobEditor(const DemoJobEditor&) = delete;
    DemoJobEditor& operator=(const DemoJobEditor&) = delete;

    std::vector<ResticJob> jobs() const override { return jobs_; }
    void add(AddRequest request, std::function<void(AddOutcome)> done) override;
    void remove(const std::string& idOrName, std::function<void(std::string error)> done) override;

    // The folders a job backs up and leaves out when it names none.
    std::vector<std::string> defaultPaths() const { return {home_}; }
    std::vector<std::string> defaultExcludes() const;

    // A job was added or removed; emitted before the caller's `done` runs.
    Signal<> changed;

private:
    // Why `job` cannot be saved, as a sentence; empty when it can.
    std::string refusal(const ResticJob& job, const std::string& password) const;
    void answer(std::function<void()> reply);

    Executor& main_;
    std::string home_;
    std::vector<ResticJob> jobs_;
    int made_ = 0;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace kestrow
