#pragma once

#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "platform/mount_table.h"
#include "shares/share_control.h"
#include "shares/vpn_service.h"

namespace kestrow {

// What `kestrow shares` works with, handed in whole so that nothing of the platform is in the
// command and tests can run it on fakes.
struct SharesCommandContext {
    // The shares and what is done to them: the running agent's share manager, or one of this
    // process's own.
    ShareControl& control;
    // True when `control` is the running agent's, whose statuses are live; otherwise the
    // statuses are read from the mount table now.
    bool liveStatuses = false;
    MountTable& mountTable;
    // The system's VPN services; none when they cannot be read.
    std::function<std::optional<std::vector<VPNService>>()> readVpns;
    // Whether the share's mount in `table` is one Kestrow made in this boot (its ledger).
    std::function<bool(const SMBShare& share, const std::vector<MountEntry>& table)> owned;
    // One line of standard input, never echoed; none when there is none.
    std::function<std::optional<std::string>()> readPassword;
    // Runs the event loop until `done()` holds (true) or `seconds` pass (false).
    std::function<bool(const std::function<bool()>& done, double seconds)> runUntil;
    // Nothing the control started (a keyring write) still has to finish before the process ends.
    std::function<bool()> settled = [] { return true; };
};

// `kestrow shares [--json]`, `shares add …`, `shares remove ID|NAME`,
// `shares mount ID|NAME [--wait]`, `shares unmount ID|NAME`. `args` follow "shares". Returns
// the exit status.
int runSharesCommand(const std::vector<std::string>& args, SharesCommandContext& context,
                     std::ostream& out, std::ostream& err);

}  // namespace kestrow
