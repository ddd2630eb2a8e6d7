#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "backup/restic_job.h"

namespace kestrow::testing {

// Stands in for the restic source's job editor. Each add waits until the test answers it, as the
// real one does while it opens or creates the repository.
class FakeJobEditor final : public ResticJobEditor {
public:
    std::vector<ResticJob> jobs() const override { return saved; }

    void add(AddRequest request, std::function<void(AddOutcome)> done) override {
        requests.push_back(request);
        pending.push_back({std::move(request), std::move(done)});
    }

    void remove(const std::string& idOrName, std::function<void(std::string)> done) override {
        removed.push_back(idOrName);
        if (removeError.empty())
            std::erase_if(saved, [&](const ResticJob& job) { return job.id == idOrName; });
        done(removeError);
    }

    // Answers the oldest add: saves the job under `id`, or refuses with `error`.
    void answer(std::optional<std::string> id, std::string error = {}) {
        Pending next = std::move(pending.front());
        pending.erase(pending.begin());
        if (id) {
            next.request.job.id = *id;
            saved.push_back(next.request.job);
        }
        next.done(AddOutcome{std::move(id), std::move(error)});
    }

    struct Pending {
        AddRequest request;
        std::function<void(AddOutcome)> done;
    };
    std::vector<ResticJob> saved;
    std::vector<AddRequest> requests;
    std::vector<Pending> pending;
    std::vector<std::string> removed;
    std::string removeError;
};

}  // namespace kestrow::testing
