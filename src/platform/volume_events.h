#pragma once

#include <functional>
#include <optional>
#include <string>

namespace kestrow {

// Tells when a mount went away (on Linux: the desktop's mount service announcing an unmount).
class VolumeEvents {
public:
    virtual ~VolumeEvents() = default;
    // `unmounted` runs on the main executor with the mount's path when it is known.
    virtual void start(std::function<void(std::optional<std::string> mountedOn)> unmounted) = 0;
    virtual void stop() = 0;
};

}  // namespace kestrow
