#pragma once

#include <optional>
#include <string>

namespace kestrow {

// Remembers that an external tool could not be started, so that a poll every few seconds does
// not fork and exec a program that is not there (the Time Machine tool on a Linux machine, a
// disk tool that was never installed). The tool is tried again after kRecheckSeconds, or at once
// when its program file changes: installed, replaced, or made executable. The program file is
// described by a stamp the caller takes (its path, identity and modification time); comparing
// two stamps costs a stat, not a process.
class MissingToolMemory {
public:
    static constexpr double kRecheckSeconds = 600.0;

    // Whether to start the tool at monotonic time `now`, with its program file as `stamp` says.
    bool shouldStart(double now, const std::string& stamp) const;
    // Why the tool could not be started last time; empty when it is not remembered as missing.
    std::string reason() const;

    void failedToStart(double now, std::string stamp, std::string reason);
    // It started: nothing to remember.
    void started() { missing_.reset(); }

private:
    struct Missing {
        double since = 0;
        std::string stamp;
        std::string reason;
    };
    std::optional<Missing> missing_;
};

}  // namespace kestrow
