#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "support/clock.h"

namespace kestrow {

// "2026-11-21T03:15:00Z": UTC, whole seconds, as the command line prints dates.
std::string formatIsoDate(WallTime time);

// Accepts "YYYY-MM-DDTHH:MM:SS" with optional fraction, then "Z" or a "+HH:MM"/"-HH:MM" offset,
// or a bare "YYYY-MM-DD" (midnight UTC). Anything else gives nothing.
std::optional<WallTime> parseIsoDate(std::string_view text);

}  // namespace kestrow
