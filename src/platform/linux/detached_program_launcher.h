#pragma once

#include "platform/program_launcher.h"

namespace kestrow {

// Starts the program through QProcess, detached: it is not Kestrow's child to wait for, and its
// standard streams go nowhere, so what it prints never lands in Kestrow's log or terminal.
class DetachedProgramLauncher final : public ProgramLauncher {
public:
    std::optional<std::string> startDetached(const std::string& program,
                                             const std::vector<std::string>& arguments) override;
};

}  // namespace kestrow
