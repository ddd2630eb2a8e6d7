#pragma once

#include <chrono>
#include <stop_token>

namespace kestrow {

using WallTime = std::chrono::system_clock::time_point;

// The only source of time for services. The app hands in the system clock; tests hand in the
// virtual-time scheduler, so that timing rules run in milliseconds of real time.
class Clock {
public:
    virtual ~Clock() = default;

    // Wall-clock time: jumps when the user or NTP sets the clock.
    virtual WallTime now() const = 0;
    // Seconds from an arbitrary origin; never goes backwards.
    virtual double monotonic() const = 0;
    // Seconds since the machine booted, sleep included.
    virtual double secondsSinceBoot() const = 0;
    // Waits `seconds`; returns false as soon as `stop` is requested (at once when already
    // requested).
    virtual bool sleep(double seconds, std::stop_token stop = {}) = 0;
};

// Seconds between two wall times, as the product's durations are kept.
inline double secondsBetween(WallTime from, WallTime to) {
    return std::chrono::duration<double>(to - from).count();
}

inline WallTime addSeconds(WallTime t, double seconds) {
    return t +
           std::chrono::duration_cast<WallTime::duration>(std::chrono::duration<double>(seconds));
}

}  // namespace kestrow
