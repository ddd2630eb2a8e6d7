#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "platform/locations.h"
#include "support/environment.h"

namespace kestrow {

// What a subcommand works with, handed in so that commands run in-process in tests.
struct CommandContext {
    std::vector<std::string> arguments;  // after the subcommand's name
    std::ostream& out;
    std::ostream& err;
    EnvironmentLookup environment;

    UserLocations locations() const { return UserLocations::resolve(environment); }
};

// Exit statuses of every command.
inline constexpr int kExitDone = 0;
inline constexpr int kExitFailed = 1;
inline constexpr int kExitUsage = 2;

}  // namespace kestrow
