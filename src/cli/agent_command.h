#pragma once

#include "cli/command_context.h"

namespace kestrow {

// `kestrow [--demo]`: builds the agent from its parts and runs it until quit, SIGINT or SIGTERM.
int runAgentCommand(const CommandContext& context, int argc, char** argv);

}  // namespace kestrow
