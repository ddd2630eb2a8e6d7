#pragma once

#include "cli/command_context.h"

namespace kestrow {

extern const char* const kStatusUsage;

// `kestrow status [--json] [--demo]`: the backup verdict now.
int runStatusCommand(const CommandContext& context);

}  // namespace kestrow
