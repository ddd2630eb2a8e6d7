#pragma once

#include <optional>
#include <string>
#include <vector>

#include "shares/smb_share.h"
#include "support/observable.h"

namespace kestrow {

// What the menu, the share editor and the command line ask of the share manager. Every call is
// made on the main thread and returns at once; the work happens on the manager's queues and
// shows in `shares`.
class ShareControl {
public:
    virtual ~ShareControl() = default;
    // The configured shares in the user's order, with their live status.
    virtual Observable<std::vector<SMBShare>>& shares() = 0;
    // An empty password stores nothing (and on update keeps the stored one).
    virtual void add(SMBShare share, const std::string& password) = 0;
    virtual void update(SMBShare share, const std::string& password) = 0;
    virtual void remove(const SMBShare& share) = 0;
    virtual void mount(const SMBShare& share) = 0;
    // Disconnects only a mount Kestrow made in this boot; anything else is left alone and the
    // share's last error says why.
    virtual void unmount(const SMBShare& share) = 0;
};

}  // namespace kestrow
