#pragma once

#include "cli/command_context.h"

namespace kestrow {

// `kestrow duplicates [--json] [DIR...]`: the duplicate groups under DIRs (default: Desktop,
// Documents, Downloads and the extra folders), one path a line with a blank line after each
// group, the summary on standard error. `kestrow duplicates --trash [--json] PATH...` moves the
// named copies to the Trash after a fresh scan, re-checking each and never taking the last copy.
int runDuplicatesCommand(const CommandContext& context);

}  // namespace kestrow
