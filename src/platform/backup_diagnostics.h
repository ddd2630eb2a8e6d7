#pragma once

#include <functional>
#include <optional>
#include <string>

#include "support/clock.h"
#include "timemachine/destination.h"

namespace kestrow {

// Why a backup attempt failed, as far as the system's records tell.
struct FailureReasonAnswer {
    std::optional<std::string> reason;  // nothing when none was given
    // false when the records could not be read; true when they were read and gave no reason.
    bool readable = true;
    bool operator==(const FailureReasonAnswer&) const = default;
};

class FailureReasonLookup {
public:
    virtual ~FailureReasonLookup() = default;
    // `done` runs once on the main executor.
    virtual void lookup(WallTime attempt, std::int64_t lastResult,
                        std::function<void(FailureReasonAnswer)> done) = 0;
};

// Whether a network destination's backup volume is attached; nothing when it cannot be told.
class BackupVolumes {
public:
    virtual ~BackupVolumes() = default;
    virtual std::optional<bool> attached(const Destination& destination) = 0;
};

}  // namespace kestrow
