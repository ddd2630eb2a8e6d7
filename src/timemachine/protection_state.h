#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kestrow {

// The one-word answer to "is this machine backed up?". Kept by its text in the shared store.
enum class ProtectionState { unknown, unavailable, stale, aging, protected_ };

std::string_view protectionStateText(ProtectionState state);
std::optional<ProtectionState> protectionStateFromText(std::string_view text);

struct ProtectionVerdict {
    ProtectionState state = ProtectionState::unknown;
    std::vector<std::string> reasons;  // the first is the headline
    bool lastAttemptFailed = false;

    std::vector<std::string> detailReasons() const {
        return reasons.empty() ? std::vector<std::string>{}
                               : std::vector<std::string>(reasons.begin() + 1, reasons.end());
    }
    bool operator==(const ProtectionVerdict&) const = default;
};

}  // namespace kestrow
