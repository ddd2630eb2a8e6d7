#pragma once

#include "cli/command_context.h"

namespace kestrow {

// `kestrow hogs [--json] [--scan]`: the folders that grew fast between the last two snapshots
// and when the disk fills at that pace; --scan first takes a snapshot now, whatever the hour,
// power or idle time.
int runHogsCommand(const CommandContext& context);

}  // namespace kestrow
