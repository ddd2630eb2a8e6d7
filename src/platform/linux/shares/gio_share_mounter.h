#pragma once

#include <functional>
#include <stop_token>
#include <string>

#include "platform/share_mounter.h"

namespace kestrow {

// Mounts shares through GIO (gvfs), the way the file manager does, on the calling worker thread:
// the thread gets its own GLib main context for the call, and the credentials are handed to the
// mount operation in memory when the server asks (never saved, never put on a command line).
class GioShareMounter final : public ShareMounter {
public:
    MountCallResult mount(const MountRequest& request, const std::function<bool()>& isMounted,
                          std::stop_token stop) override;
    // Only a gvfs mount found at `mountedOn` is unmounted; a kernel mount is refused.
    bool unmount(const std::string& mountedOn, std::string* error) override;
};

}  // namespace kestrow
