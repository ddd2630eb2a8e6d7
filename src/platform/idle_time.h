#pragma once

#include <optional>

namespace kestrow {

// How long the user has left keyboard and pointer alone.
class IdleTime {
public:
    virtual ~IdleTime() = default;
    // Nothing when the session does not say.
    virtual std::optional<double> secondsSinceLastInput() = 0;
};

}  // namespace kestrow
