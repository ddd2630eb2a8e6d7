#pragma once

#include "cli/command_context.h"

namespace kestrow {

// `kestrow cleaners [--json]`: the cleaner rows as the menu shows them.
int runCleanersCommand(const CommandContext& context);
// `kestrow clean [--estimate] [--json]`: the manual free-up, or what it could free now.
int runCleanCommand(const CommandContext& context);

}  // namespace kestrow
