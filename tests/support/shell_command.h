#pragma once

#include <string>

namespace kestrow::testing {

struct ShellOutcome {
    int status = -1;  // -1 when the command did not exit by itself
    std::string out;  // standard output, byte for byte
};

// Runs `command` through /bin/sh, as a user at a terminal would, and waits for it.
ShellOutcome runShell(const std::string& command);

}  // namespace kestrow::testing
