#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "summarizer/status_fact.h"
#include "support/wording.h"

namespace kestrow {

// What the on-device model is asked. The wording is tuned against the validator: it names the
// things the validator refuses (a dropped problem, an added cause, a new number, an all-clear).
class StatusSummaryPrompt {
public:
    // The session's standing instructions, given once before any prompt, as the product has them.
    static constexpr std::string_view kInstructions =
        "You rewrite Mac backup status lines. You never omit a problem, never invent one, and "
        "never claim anything is fine.";

    static std::string instructions(const Wording& wording) { return wording(kInstructions); }
    // The prompt's own words are said in `wording`; the lines go in as the menu shows them.
    static std::string build(const std::vector<StatusFact>& facts, const Wording& wording);
};

}  // namespace kestrow
