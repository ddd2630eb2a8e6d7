#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "support/clock.h"

namespace kestrow {

// The widget side: processes that show Kestrow's status outside the app and read the shared
// store, and the signal that tells them to read it again.
class WidgetHost {
public:
    struct Process {
        int pid;
        WallTime started;
    };
    virtual ~WidgetHost() = default;
    virtual std::vector<Process> runningWidgetProcesses() const = 0;
    virtual void terminate(int pid) = 0;
    // When the app's binary was last replaced; nothing when it cannot be told.
    virtual std::optional<WallTime> appBinaryReplaced() const = 0;
    virtual void reloadTimelines(std::string_view kind) = 0;
};

}  // namespace kestrow
