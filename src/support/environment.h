#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace kestrow {

// Reads one environment variable; absent when unset. Handed in, so tests give their own.
using EnvironmentLookup = std::function<std::optional<std::string>(std::string_view name)>;

EnvironmentLookup processEnvironment();

}  // namespace kestrow
