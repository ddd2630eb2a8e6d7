#pragma once

#include "support/clock.h"

namespace kestrow {

// The machine's clocks: wall time, a monotonic clock, and CLOCK_BOOTTIME for time since boot
// (it keeps counting through sleep, as "seconds since boot" must).
class SystemClock final : public Clock {
public:
    WallTime now() const override;
    double monotonic() const override;
    double secondsSinceBoot() const override;
    bool sleep(double seconds, std::stop_token stop = {}) override;
};

}  // namespace kestrow
