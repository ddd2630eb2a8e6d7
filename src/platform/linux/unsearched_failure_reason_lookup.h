#pragma once

#include "platform/backup_diagnostics.h"
#include "support/executor.h"

namespace kestrow {

// Linux keeps no record of why a Time Machine attempt failed, so there is nothing to search: the
// answer is always "readable, no reason given", and the verdict shows Time Machine's own code.
class UnsearchedFailureReasonLookup final : public FailureReasonLookup {
public:
    explicit UnsearchedFailureReasonLookup(Executor& mainExecutor) : main_(mainExecutor) {}

    void lookup(WallTime /*attempt*/, std::int64_t /*lastResult*/,
                std::function<void(FailureReasonAnswer)> done) override {
        main_.post([done = std::move(done)] { done(FailureReasonAnswer{std::nullopt, true}); });
    }

private:
    Executor& main_;
};

}  // namespace kestrow
