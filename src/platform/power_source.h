#pragma once

#include <optional>

namespace kestrow {

// Whether the machine runs on mains power now.
class PowerSource {
public:
    virtual ~PowerSource() = default;
    // Nothing when it cannot be told; callers that need mains then wait.
    virtual std::optional<bool> onMainsPower() = 0;
};

}  // namespace kestrow
