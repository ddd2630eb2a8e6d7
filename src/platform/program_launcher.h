#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kestrow {

// Starts another application that goes on by itself: Kestrow neither waits for it nor stops it,
// and it outlives Kestrow.
class ProgramLauncher {
public:
    virtual ~ProgramLauncher() = default;
    // Nothing when the program started; otherwise why it could not.
    virtual std::optional<std::string> startDetached(const std::string& program,
                                                     const std::vector<std::string>& arguments) = 0;
};

}  // namespace kestrow
