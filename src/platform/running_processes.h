#pragma once

#include <string>

#include "cleaners/cleaner_owner.h"

namespace kestrow {

// What runs on this machine now.
class RunningProcesses {
public:
    virtual ~RunningProcesses() = default;
    virtual ProcessListing current() = 0;
    // Whether an application with this bundle identifier runs (always false where there are no
    // bundle identifiers).
    virtual bool applicationRunning(const std::string& bundleID) = 0;
};

}  // namespace kestrow
