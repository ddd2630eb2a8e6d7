#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include "support/clock.h"

namespace kestrow {

// The machine going to sleep and waking (logind's PrepareForSleep on Linux).
class SystemPowerEvents {
public:
    virtual ~SystemPowerEvents() = default;
    // Callbacks run on the main executor. False when the system's notifications could not be
    // subscribed to.
    virtual bool start(std::function<void(WallTime)> willSleep, std::function<void()> woke) = 0;
    virtual void stop() = 0;
    // What woke: the capability bits of the wake when the system tells them (bit 2: graphics, a
    // full wake); none where it does not (Linux), and a wake is then taken as a full one.
    virtual std::optional<std::uint64_t> wakeCapabilities() = 0;
};

}  // namespace kestrow
