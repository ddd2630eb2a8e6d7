#include "summarizer/status_summary.h"

#include <algorithm>

#include "summarizer/status_summary_prompt.h"
#include "summarizer/summary_text.h"
#include "summarizer/summary_validator.h"

namespace kestrow {

bool StatusSummary::worthSummarizing(const std::vector<StatusFact>& facts) {
    return facts.size() >= 2 && std::any_of(facts.begin(), facts.end(),
                                            [](const StatusFact& f) { return f.isProblem(); });
}

StatusSummary::Outcome StatusSummary::make(const ProtectionVerdict& verdict,
                                           StatusSummarizer* summarizer, const Wording& wording) {
    const auto facts = StatusFact::facts(verdict);
    if (!worthSummarizing(facts)) return SummaryUnavailability::notWorthSummarizing();
    if (!summarizer) return SummaryUnavailability::deviceNotEligible();

    auto answer = summarizer->summarize(StatusSummaryPrompt::instructions(wording),
                                        StatusSummaryPrompt::build(facts, wording));
    if (auto* unavailable = std::get_if<SummaryUnavailability>(&answer)) return *unavailable;

    const auto& rewrite = std::get<std::string>(answer);
    const auto validation = SummaryValidator::validate(rewrite, facts);
    if (!validation.accepted()) return SummaryUnavailability::rejected(*validation.rejection);
    return std::string(trimmedText(rewrite));
}

}  // namespace kestrow
