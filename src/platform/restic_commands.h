#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kestrow {

// One run of restic.
struct ResticInvocation {
    std::string repository;  // as restic takes it; may hold credentials
    std::vector<std::string>
        arguments;                // the command and its options, e.g. {"snapshots", "--json"}
    std::string password;         // reaches restic through a pipe, never argv or environ
    double timeLimitSeconds = 0;  // 0: none (a backup runs as long as it takes)
};

// How a run ended.
struct ResticEnding {
    enum class Kind {
        exited,         // `exitCode` holds restic's status
        failedToStart,  // restic is missing or could not be run; `errorText` says why
        timedOut,       // stopped at the time limit
        stopped,  // stopped because its handle was dropped (Kestrow quit, or asked it to stop)
        killed,   // ended by a signal nobody here sent (logout, out of memory, someone else)
    };
    Kind kind = Kind::failedToStart;
    int exitCode = -1;
    int signal = 0;         // for `killed`
    std::string errorText;  // the last part of what restic wrote to standard error
};

// Runs restic. Standard output is delivered line by line as it comes (restic's --json output is
// one document per line); standard error is kept for the ending. Returns at once; `line` and
// `done` run later on the main executor, `done` exactly once and last.
class ResticCommands {
public:
    // A run under way. `stop()` asks restic to stop (SIGINT, so it removes its lock; killed if
    // it does not go within a few seconds) and `done` then reports `stopped`. Dropping the handle
    // stops the run the same way, but nothing is reported after that.
    class Run {
    public:
        virtual ~Run() = default;
        virtual void stop() = 0;
    };

    virtual ~ResticCommands() = default;
    virtual std::unique_ptr<Run> run(ResticInvocation invocation,
                                     std::function<void(std::string_view line)> line,
                                     std::function<void(ResticEnding)> done) = 0;
};

}  // namespace kestrow
