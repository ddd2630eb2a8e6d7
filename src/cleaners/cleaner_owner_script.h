#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/running_processes.h"

namespace kestrow {

// The file name of the program a process runs: the executable's, which the process cannot
// change; then the first argument's, for a process whose executable could not be read; then its
// own name, for one that shows neither.
std::string programName(const RunningProcess& process);

// The script or module an interpreter was started on, read from its arguments: the first one that
// is not an option (`python3 -I /usr/bin/pip3 install x` runs "pip3"), or what `-m` names.
// Nothing when it runs a command line (`-c`), its standard input, or arguments it rewrote.
struct InterpretedScript {
    std::string script;  // the script's file name, without a directory; empty for a module
    std::string module;  // `-m pip` gives "pip"; empty for a script
    bool operator==(const InterpretedScript&) const = default;

    static std::optional<InterpretedScript> of(const std::vector<std::string>& arguments);
};

// An owner that runs as a script or a module of an interpreter, like pip (python running the
// pip3 entry script, or `python -m pip`) or brew (a shell script). The interpreter alone does not
// make the owner run: python running some other program is not pip.
//
// Names match in lower case, with or without a version after them: "python" takes "python3" and
// "python3.11", "pip" takes "pip3" but not "pipewire". A script's usual extension (".py", ".js",
// …) is ignored, and a module's submodules ("pip._internal") are the module.
struct CleanerOwnerScript {
    std::vector<std::string> interpreters;
    std::vector<std::string> scripts = {};
    std::vector<std::string> modules = {};
    bool operator==(const CleanerOwnerScript&) const = default;

    bool matches(const RunningProcess& process) const;
};

}  // namespace kestrow
