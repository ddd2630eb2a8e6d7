#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "summarizer/status_fact.h"
#include "summarizer/summary_rejection.h"

namespace kestrow {

// Decides whether a model's one-sentence rewrite of the status lines may be shown in their
// place. Everything is plain substring search on folded text: the validator may refuse a good
// rewrite (the lines are then shown, nothing is lost) but must never pass one that drops a
// problem, claims all is well, or adds a cause or a number.
class SummaryValidator {
public:
    static constexpr std::size_t maximumCharacters = 240;
    static constexpr std::size_t maximumSentences = 3;

    struct Validation {
        std::optional<SummaryRejection> rejection;  // nothing when accepted

        bool accepted() const { return !rejection; }
        bool operator==(const Validation&) const = default;
    };

    static Validation validate(std::string_view summary, const std::vector<StatusFact>& facts);

    // Every maximal run of decimal digits of any script, each once, as written, in the order of
    // first appearance ("code 19, 2 days" gives "19" and "2"). A rewrite's number is known when
    // the facts hold the same digits, whatever their script ("٣" is "3"); digits are compared as
    // text: "07" is not "7".
    static std::vector<std::string> numbers(std::string_view text);
};

}  // namespace kestrow
