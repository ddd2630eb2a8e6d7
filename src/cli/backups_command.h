#pragma once

#include "cli/command_context.h"

namespace kestrow {

// `kestrow backups [--json]`, `kestrow backups add …`, `kestrow backups remove ID|NAME`.
int runBackupsCommand(const CommandContext& context);

}  // namespace kestrow
