#pragma once

#include <optional>
#include <string>

namespace kestrow {

// One line of standard input, without echo when a person types it at a terminal (after
// `prompt` on standard error). None when standard input has ended.
std::optional<std::string> readSecretLine(const std::string& prompt);

}  // namespace kestrow
