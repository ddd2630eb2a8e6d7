#include "support/environment.h"

#include <cstdlib>

namespace kestrow {

EnvironmentLookup processEnvironment() {
    return [](std::string_view name) -> std::optional<std::string> {
        const char* value = std::getenv(std::string(name).c_str());
        if (value == nullptr) return std::nullopt;
        return std::string(value);
    };
}

}  // namespace kestrow
