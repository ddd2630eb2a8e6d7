#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace kestrow {

// Whether a host answers on a TCP port.
class NetworkProbe {
public:
    // Dropping the handle cancels the probe: `done` is not called after that. Not to be dropped
    // from inside `done`.
    class Handle {
    public:
        virtual ~Handle() = default;
    };

    virtual ~NetworkProbe() = default;
    // `done` runs once on the main executor: true when a connection was made, false when it
    // failed or did not complete within the probe's own time limit.
    virtual std::unique_ptr<Handle> connect(const std::string& host, std::uint16_t port,
                                            std::function<void(bool reachable)> done) = 0;
};

}  // namespace kestrow
