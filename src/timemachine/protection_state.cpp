#include "timemachine/protection_state.h"

#include <array>
#include <utility>

namespace kestrow {

namespace {

// The texts are stored in the shared store, so they must never change with the enum's spelling.
constexpr std::array<std::pair<ProtectionState, std::string_view>, 5> kTexts{{
    {ProtectionState::unknown, "unknown"},
    {ProtectionState::unavailable, "unavailable"},
    {ProtectionState::stale, "stale"},
    {ProtectionState::aging, "aging"},
    {ProtectionState::protected_, "protected"},
}};

}  // namespace

std::string_view protectionStateText(ProtectionState state) {
    for (const auto& [value, text] : kTexts) {
        if (value == state) return text;
    }
    return "unknown";
}

std::optional<ProtectionState> protectionStateFromText(std::string_view text) {
    for (const auto& [value, known] : kTexts) {
        if (known == text) return value;
    }
    return std::nullopt;
}

}  // namespace kestrow
