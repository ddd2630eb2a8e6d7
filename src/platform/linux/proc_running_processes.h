#pragma once

#include <filesystem>
#include <string>

#include "platform/running_processes.h"

namespace kestrow {

// The process table from /proc. A process's name is its `comm`, which the kernel cuts to 15
// characters: when it is so cut, the name is taken from the executable named first in `cmdline`
// instead, so that an owner known as "chromium-browser" is still recognised. The path is where
// `exe` points, without the " (deleted)" the kernel adds once the file is gone, and is absent
// when the link cannot be read (kernel threads, other users' processes). The arguments are
// `cmdline` split at its NULs, empty for kernel threads. Processes that end
// while the table is read are left out.
class ProcRunningProcesses final : public RunningProcesses {
public:
    explicit ProcRunningProcesses(std::filesystem::path procRoot = "/proc");

    // Nothing when the proc root itself cannot be listed.
    ProcessListing current() override;
    // Linux has no bundle identifiers.
    bool applicationRunning(const std::string& bundleID) override;

private:
    std::filesystem::path procRoot_;
};

}  // namespace kestrow
