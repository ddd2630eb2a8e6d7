#pragma once

#include "cli/command_context.h"

namespace kestrow {

extern const char* const kSizesUsage;

// `kestrow sizes [--min-size BYTES] [--json] DIR...`: every folder whose allocated total is at
// least BYTES, as "BYTES<TAB>PATH" lines in du's order (what is inside a folder before the
// folder, each root's folders together, roots in the order given), or as JSON.
int runSizesCommand(const CommandContext& context);

}  // namespace kestrow
