#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "summarizer/status_fact.h"

namespace kestrow {

// What the on-device model is asked. The wording is tuned against the validator: it names the
// things the validator refuses (a dropped problem, an added cause, a new number, an all-clear).
class StatusSummaryPrompt {
public:
    // The session's standing instructions, given once before any prompt.
    static constexpr std::string_view instructions =
        "You rewrite Mac backup status lines. You never omit a problem, never invent one, and "
        "never claim anything is fine.";

    static std::string build(const std::vector<StatusFact>& facts);
};

}  // namespace kestrow
