#pragma once

#include <functional>
#include <optional>
#include <stop_token>
#include <string>

#include "shares/smb_share.h"

namespace kestrow {

struct MountRequest {
    ShareProtocol protocol = ShareProtocol::smb;
    // The mount URL without the password (user name included when there is one).
    std::string url;
    std::string username;
    // Handed to the mount operation in memory only: never an argument, an environment value, a
    // log line or a file.
    std::string password;
    bool interactive = true;
    // The attempt's own limit and the hard limit on the whole call (2 / 10 s, or 120 / 125 s
    // when the server may ask for credentials).
    double attemptSeconds = 2.0;
    double callSeconds = 10.0;
};

struct MountCallResult {
    // Why the mount could not even be tried, in words for the user ("Connecting servers: …");
    // none when it ran. Whether it worked is only ever judged by the mount table.
    std::optional<std::string> bridgeError;
};

// Mounts and unmounts network shares the desktop's way (GIO/gvfs on Linux). Both calls block the
// calling queue (never the main thread) until they end.
class ShareMounter {
public:
    virtual ~ShareMounter() = default;
    // Ends early once `isMounted()` says the share is in the mount table (asked about every
    // 0.1 s), when the call limit passes, or when `stop` is requested.
    virtual MountCallResult mount(const MountRequest& request,
                                  const std::function<bool()>& isMounted, std::stop_token stop) = 0;
    // Unmounts what is mounted at `mountedOn` (a path from the mount table). True when the
    // mount went away; `error` gets the system's words otherwise.
    virtual bool unmount(const std::string& mountedOn, std::string* error) = 0;
};

}  // namespace kestrow
