#pragma once

namespace kestrow {

// The `kestrow` executable: runs the agent, or one subcommand, and returns the exit status
// (0 done, 1 the work could not be done, 2 the command line is wrong).
int runCommandLine(int argc, char** argv);

}  // namespace kestrow
