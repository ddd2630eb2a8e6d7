#include "cleaners/cleaner_owner.h"

#include <algorithm>

#include "support/ascii_case.h"

namespace kestrow {

bool CleanerOwner::matches(const RunningProcess& process) const {
    const std::string name = asciiLowercase(programName(process));
    for (const std::string& candidate : processNames) {
        if (name == asciiLowercase(candidate)) return true;
    }
    for (const std::string& prefix : processNamePrefixes) {
        if (name.starts_with(asciiLowercase(prefix))) return true;
    }
    if (std::any_of(scripts.begin(), scripts.end(),
                    [&](const CleanerOwnerScript& script) { return script.matches(process); }))
        return true;
    if (!process.path) return false;
    return std::any_of(pathFragments.begin(), pathFragments.end(), [&](const std::string& part) {
        return process.path->find(part) != std::string::npos;
    });
}

bool CleanerOwner::isRunningNow(
    const std::function<bool(const std::string& bundleID)>& applicationRunning,
    const std::function<ProcessListing()>& processes) const {
    for (const std::string& bundleID : bundleIDs) {
        if (applicationRunning && applicationRunning(bundleID)) return true;
    }
    const bool knownByProcess = !processNames.empty() || !processNamePrefixes.empty() ||
                                !pathFragments.empty() || !scripts.empty();
    if (!knownByProcess) return false;
    const ProcessListing listing = processes ? processes() : ProcessListing{};
    // Without the table there is no telling whether the owner runs; the cache waits a pass.
    if (!listing) return true;
    return std::any_of(listing->begin(), listing->end(),
                       [&](const RunningProcess& process) { return matches(process); });
}

}  // namespace kestrow
