#include "platform/linux/system_clock.h"

#include <time.h>

#include <condition_variable>
#include <mutex>

namespace kestrow {

WallTime SystemClock::now() const {
    return std::chrono::system_clock::now();
}

double SystemClock::monotonic() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

double SystemClock::secondsSinceBoot() const {
    timespec ts{};
    ::clock_gettime(CLOCK_BOOTTIME, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

bool SystemClock::sleep(double seconds, std::stop_token stop) {
    std::mutex mutex;
    std::condition_variable_any wake;
    std::unique_lock lock(mutex);
    const auto until = std::chrono::steady_clock::now() +
                       std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                           std::chrono::duration<double>(seconds > 0 ? seconds : 0));
    // Returns true from the predicate only when stopped, so a timeout means the full sleep passed.
    return !wake.wait_until(lock, stop, until, [&stop] { return stop.stop_requested(); });
}

}  // namespace kestrow
