#pragma once

#include <string>
#include <variant>
#include <vector>

#include "platform/status_summarizer.h"
#include "summarizer/status_fact.h"
#include "summarizer/summary_unavailability.h"
#include "support/wording.h"
#include "timemachine/protection_state.h"

namespace kestrow {

// Decides what the menu shows for a verdict: a checked one-sentence rewrite, or why there is
// none (the menu then shows the reason lines). Blocks on the model: run it on a serial queue.
class StatusSummary {
public:
    // The accepted sentence (trimmed), or the reason the reason lines stay.
    using Outcome = std::variant<std::string, SummaryUnavailability>;

    // A null `summarizer` means no model is wired in, and reads as deviceNotEligible. The
    // verdict's lines are taken as the menu shows them; the model is asked in `wording`.
    static Outcome make(const ProtectionVerdict& verdict, StatusSummarizer* summarizer,
                        const Wording& wording);

    // A rewrite is only asked for when it can help: two lines or more, at least one of them a
    // problem. A single line is already one short sentence, and the healthy lines (an age and
    // perhaps "Backup in progress") read well as they are; their age text also changes every
    // minute, so summarizing them would keep the model busy for nothing.
    static bool worthSummarizing(const std::vector<StatusFact>& facts);
};

}  // namespace kestrow
