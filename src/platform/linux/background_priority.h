#pragma once

#include <optional>
#include <string>

namespace kestrow {

// Idle priority for the calling thread only: the idle CPU policy (it runs when nothing else
// wants the processor) at the lowest nice level, and the idle I/O class (it reads the disk when
// nothing else does). Meant for a worker that runs nothing but long background walks, since an
// unprivileged thread cannot take the priority back.
struct BackgroundPriority {
    // Nothing when all three took; else what did not, for the log. The rest still applies.
    static std::optional<std::string> enterOnThisThread();
};

}  // namespace kestrow
