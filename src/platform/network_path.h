#pragma once

#include <functional>

namespace kestrow {

// Whether the machine has a usable network (on Linux: NetworkManager's state; without
// NetworkManager the network counts as there).
class NetworkPathMonitor {
public:
    virtual ~NetworkPathMonitor() = default;
    // `changed` runs on the main executor with the first reading soon after start, then on each
    // change of "satisfied".
    virtual void start(std::function<void(bool satisfied)> changed) = 0;
    virtual void stop() = 0;
};

}  // namespace kestrow
