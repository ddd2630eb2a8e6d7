#pragma once

#include <optional>

namespace kestrow::testing {

// Some contract tests need a second process: they start this test binary again with
// `--kestrow-child <mode> <argument>`. Returns the exit code when the arguments ask for a child
// mode, nothing otherwise.
//   journal <token>  logs one line per level, containing <token>, through makeSystemLogSink()
//   claim <folder>   claims SingleInstance(<folder>) and prints the role it got
std::optional<int> runChildMode(int argc, char** argv);

}  // namespace kestrow::testing
