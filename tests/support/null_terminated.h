#pragma once

#include <string>
#include <vector>

namespace kestrow::testing {

// The argv or envp form of `strings` for exec and spawn: pointers into them, then a null. The
// strings must outlive the result.
inline std::vector<char*> nullTerminated(std::vector<std::string>& strings) {
    std::vector<char*> pointers;
    pointers.reserve(strings.size() + 1);
    for (auto& text : strings) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace kestrow::testing
