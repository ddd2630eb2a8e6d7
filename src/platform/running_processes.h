#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kestrow {

// One row of the process table.
struct RunningProcess {
    // What the process calls itself (its `comm`, completed when the kernel cut it). A process can
    // rewrite this at will, so it is for people to read, not for telling who runs.
    std::string name;
    std::optional<std::string> path;  // the executable; absent when it could not be read
    // The argument vector, the program's own name first; empty when it could not be read (kernel
    // threads, processes that ended). A program may rewrite it too, but not the executable.
    std::vector<std::string> arguments = {};
    bool operator==(const RunningProcess&) const = default;
};

// The process table, or nothing when it could not be read.
using ProcessListing = std::optional<std::vector<RunningProcess>>;

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
