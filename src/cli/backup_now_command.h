#pragma once

#include "cli/command_context.h"

namespace kestrow {

// `kestrow backup-now [--json] [--wait]`.
int runBackupNowCommand(const CommandContext& context, const std::string& executable);

}  // namespace kestrow
