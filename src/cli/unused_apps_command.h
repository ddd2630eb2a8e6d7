#pragma once

#include "cli/command_context.h"

namespace kestrow {

// `kestrow unused-apps [--json]`: applications not opened for 180 days, the longest unused first.
int runUnusedAppsCommand(const CommandContext& context);

}  // namespace kestrow
