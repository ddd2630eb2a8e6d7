#pragma once

#include "cli/command_context.h"

namespace kestrow {

// `kestrow settings [--json]`, `kestrow settings set KEY VALUE`, `kestrow settings unset KEY`.
int runSettingsCommand(const CommandContext& context);

extern const char* const kSettingsUsage;

}  // namespace kestrow
