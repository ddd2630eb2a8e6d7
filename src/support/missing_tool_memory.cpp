#include "support/missing_tool_memory.h"

namespace kestrow {

bool MissingToolMemory::shouldStart(double now, const std::string& stamp) const {
    if (!missing_) return true;
    // A clock that went backwards (it should not) counts as time passed rather than none.
    const double waited = now - missing_->since;
    return stamp != missing_->stamp || waited >= kRecheckSeconds || waited < 0;
}

std::string MissingToolMemory::reason() const {
    return missing_ ? missing_->reason : std::string();
}

void MissingToolMemory::failedToStart(double now, std::string stamp, std::string reason) {
    missing_ = Missing{now, std::move(stamp), std::move(reason)};
}

}  // namespace kestrow
