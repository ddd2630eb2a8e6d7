#pragma once

#include <functional>
#include <optional>
#include <string>
#include <variant>

namespace kestrow {

// What became of asking Time Machine to start a backup now.
struct StartBackupOutcome {
    struct Accepted {
        bool operator==(const Accepted&) const = default;
    };
    struct LaunchFailed {
        std::string error;
        bool operator==(const LaunchFailed&) const = default;
    };
    struct Refused {
        int status = 0;
        bool operator==(const Refused&) const = default;
    };
    std::variant<Accepted, LaunchFailed, Refused> value;
    bool operator==(const StartBackupOutcome&) const = default;
};

// The Time Machine command-line tool. Both calls return at once; `done` runs later on the main
// executor, exactly once.
class TimeMachineTools {
public:
    virtual ~TimeMachineTools() = default;
    // "status -X": everything the tool wrote to standard output, or nothing when it could not be
    // run to the end (not launched, or stopped at its time limit).
    virtual void status(std::function<void(std::optional<std::string> output)> done) = 0;
    // "startbackup".
    virtual void startBackup(std::function<void(StartBackupOutcome)> done) = 0;
};

}  // namespace kestrow
