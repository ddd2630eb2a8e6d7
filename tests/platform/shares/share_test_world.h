#pragma once

#include <optional>
#include <string>

#include "support/share_world.h"

namespace kestrow::testing {

// The world main() entered for this test process (each test runs in a process of its own), or
// why there is none.
ShareWorld& shareWorld();
const std::optional<std::string>& shareWorldProblem();

}  // namespace kestrow::testing
