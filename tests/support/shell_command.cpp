#include "support/shell_command.h"

#include <sys/wait.h>

#include <cstdio>

namespace kestrow::testing {

ShellOutcome runShell(const std::string& command) {
    ShellOutcome outcome;
    FILE* pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr) return outcome;
    char buffer[4096];
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;)
        outcome.out.append(buffer, n);
    const int status = ::pclose(pipe);
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return outcome;
}

}  // namespace kestrow::testing
