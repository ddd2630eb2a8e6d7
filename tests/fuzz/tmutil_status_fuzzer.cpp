// Whatever the Time Machine tool prints is outside data: every reading of it must end without a
// crash, and what the strict reading lets through must be within the ranges it promises.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>

#include "timemachine/time_machine_live_status.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string output(reinterpret_cast<const char*>(data), size);
    const auto live = kestrow::TimeMachineLiveStatus::from(output);
    const std::string line = live.progressLine();
    if (!line.starts_with("Backing up")) __builtin_trap();

    const auto details = kestrow::TimeMachineLiveStatus::statusDetails(output);
    if (details.percent && !(*details.percent >= 0.0 && *details.percent <= 1.0)) __builtin_trap();
    if (details.timeRemaining &&
        !(std::isfinite(*details.timeRemaining) && *details.timeRemaining > 0.0))
        __builtin_trap();

    // The raw bytes as a phase key, for the word splitting.
    if (const auto words = kestrow::TimeMachineLiveStatus::phaseWords(output)) {
        if (words->empty()) __builtin_trap();
    }
    return 0;
}
