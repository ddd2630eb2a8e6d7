#pragma once

#include <functional>
#include <optional>
#include <string>

#include "support/temp_folder.h"

namespace kestrow::testing {

// Runs `body` in a child process as an unprivileged user (uid 65534 when the tests run as root,
// which reads through chmod 000) and hands back what it returned; nothing when that cannot be
// done. `temp` is opened up so that the child can reach into it.
std::optional<std::string> unprivileged(const TempFolder& temp,
                                        const std::function<std::string()>& body);

}  // namespace kestrow::testing
