#pragma once

#include <functional>
#include <optional>
#include <string>

#include "shares/smb_share.h"

namespace kestrow {

// The reachability checks as the share manager sees them: one blocking call on its mount queue
// that answers which host to put into the mount URL, or none when the server cannot be reached
// now.
class ConnectionAvailability {
public:
    virtual ~ConnectionAvailability() = default;
    // Returns as soon as `shouldKeepRetrying()` turns false (network gone, the user disconnected
    // the share, the share was removed), and at the latest at its own total deadline.
    virtual std::optional<std::string> waitForConnectionAvailability(
        const SMBShare& share, const std::function<bool()>& shouldKeepRetrying) = 0;
    // Whether the last probe that ended found the system refusing local-network access.
    virtual bool localNetworkDenied() const = 0;
};

}  // namespace kestrow
