#pragma once

#include <functional>
#include <string>
#include <vector>

#include "cleaners/cleaner_owner_script.h"
#include "platform/running_processes.h"

namespace kestrow {

// The application whose data a cleaner takes, so that its pass can wait while it runs. Linux has
// no bundle identifiers; owners there are known by what their processes run — the executable and
// the script an interpreter was given — never by the name a process gives itself, which it can
// rewrite (`npm run build` renames node; any Python program may call itself "pip").
struct CleanerOwner {
    std::vector<std::string> bundleIDs;
    std::vector<std::string> processNames;  // the program's file name, compared in lower case
    std::vector<std::string> processNamePrefixes;  // for helper programs beside the main one
    std::vector<std::string> pathFragments;        // substrings of the executable's path
    std::vector<CleanerOwnerScript> scripts = {};  // interpreters running the owner's script

    bool operator==(const CleanerOwner&) const = default;

    bool matches(const RunningProcess& process) const;
    // `applicationRunning` answers for one bundle identifier; `processes` is read only when the
    // owner is known by process. An unreadable table counts as "running" for such an owner: a
    // cache is never taken from under an application that might be using it.
    bool isRunningNow(const std::function<bool(const std::string& bundleID)>& applicationRunning,
                      const std::function<ProcessListing()>& processes) const;
};

}  // namespace kestrow
