#pragma once

#include "cli/command_context.h"

namespace kestrow {

// `kestrow drive-health [--json]`: what the boot disk and the backup disk say of their health.
int runDriveHealthCommand(const CommandContext& context);

}  // namespace kestrow
