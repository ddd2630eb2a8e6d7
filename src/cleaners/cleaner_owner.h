#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kestrow {

// One row of the process table.
struct RunningProcess {
    std::string name;
    std::optional<std::string> path;  // the executable; absent when it could not be read
    bool operator==(const RunningProcess&) const = default;
};

// The process table, or nothing when it could not be read.
using ProcessListing = std::optional<std::vector<RunningProcess>>;

// The application whose data a cleaner takes, so that its pass can wait while it runs. Linux has
// no bundle identifiers; owners there are known by process names and install paths.
struct CleanerOwner {
    std::vector<std::string> bundleIDs;
    std::vector<std::string> processNames;         // exact, compared in lower case
    std::vector<std::string> processNamePrefixes;  // for helper processes beside the main one
    std::vector<std::string> pathFragments;        // substrings of the executable's path

    bool operator==(const CleanerOwner&) const = default;

    bool matches(const RunningProcess& process) const;
    // `applicationRunning` answers for one bundle identifier; `processes` is read only when the
    // owner is known by process. An unreadable table counts as "running" for such an owner: a
    // cache is never taken from under an application that might be using it.
    bool isRunningNow(const std::function<bool(const std::string& bundleID)>& applicationRunning,
                      const std::function<ProcessListing()>& processes) const;
};

}  // namespace kestrow
