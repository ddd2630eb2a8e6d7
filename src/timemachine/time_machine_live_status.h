#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/bridged.h"

namespace kestrow {

// What Time Machine says it is doing now, from "tmutil status -X".
struct TimeMachineLiveStatus {
    bool running = false;
    std::optional<std::string> phase;  // the raw phase key
    std::optional<double> percent;     // 0.0 to 1.0
    std::optional<BridgeUnavailable> unavailable;

    bool operator==(const TimeMachineLiveStatus&) const = default;

    // The stricter reading, for where the answer decides something.
    struct Details {
        std::optional<bool> running;
        std::optional<double> percent;
        std::optional<double> timeRemaining;
        bool operator==(const Details&) const = default;
    };

    // Lenient: anything unreadable is "not running".
    static TimeMachineLiveStatus from(const std::optional<std::string>& statusOutput);
    static Details statusDetails(const std::optional<std::string>& statusOutput);
    static std::optional<std::string> phaseWords(const std::optional<std::string>& phase);
    // "Backing up — copying files · 42%".
    std::string progressLine() const;
};

}  // namespace kestrow
