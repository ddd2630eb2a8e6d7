#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <utility>

#include "summarizer/summary_rejection.h"

namespace kestrow {

// Why the menu shows the reason lines rather than a one-sentence summary. Never shown to the
// person as an error: the lines are a complete answer on their own.
struct SummaryUnavailability {
    enum class Kind {
        generationFailed,  // `text`: what the model's session said
        rejected,          // `rejection`: why the validator refused the rewrite
        osTooOld,
        deviceNotEligible,
        appleIntelligenceNotEnabled,
        modelNotReady,
        notWorthSummarizing,
    };

    Kind kind = Kind::notWorthSummarizing;
    std::string text;
    std::optional<SummaryRejection> rejection;

    static SummaryUnavailability generationFailed(std::string text) {
        SummaryUnavailability unavailability = of(Kind::generationFailed);
        unavailability.text = std::move(text);
        return unavailability;
    }
    static SummaryUnavailability rejected(SummaryRejection rejection) {
        SummaryUnavailability unavailability = of(Kind::rejected);
        unavailability.rejection = std::move(rejection);
        return unavailability;
    }
    static SummaryUnavailability osTooOld() { return of(Kind::osTooOld); }
    static SummaryUnavailability deviceNotEligible() { return of(Kind::deviceNotEligible); }
    static SummaryUnavailability appleIntelligenceNotEnabled() {
        return of(Kind::appleIntelligenceNotEnabled);
    }
    static SummaryUnavailability modelNotReady() { return of(Kind::modelNotReady); }
    static SummaryUnavailability notWorthSummarizing() { return of(Kind::notWorthSummarizing); }

    // One line for the log.
    std::string description() const;

    bool operator==(const SummaryUnavailability&) const = default;

private:
    static SummaryUnavailability of(Kind kind) {
        SummaryUnavailability unavailability;
        unavailability.kind = kind;
        return unavailability;
    }
};

// Writes the description, so that test failures and logs read as words.
std::ostream& operator<<(std::ostream& out, const SummaryUnavailability& value);

}  // namespace kestrow
