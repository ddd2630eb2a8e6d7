#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

namespace kestrow::testing {

// Runs `body` in a child process and hands back what it returned, or nothing when it did not
// finish within `limit` (the child is killed then). For code that must not hang: a hang fails the
// test instead of stopping the whole test run.
std::optional<std::string> withinTime(std::chrono::milliseconds limit,
                                      const std::function<std::string()>& body);

}  // namespace kestrow::testing
