#pragma once

#include "cli/command_context.h"

namespace kestrow {

// `kestrow startup-items [--json]`: what starts by itself at login or with the system.
int runStartupItemsCommand(const CommandContext& context);

}  // namespace kestrow
