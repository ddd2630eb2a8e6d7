#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>
#include <utility>

#include "summarizer/status_fact.h"

namespace kestrow {

// Why a model's rewrite of the status lines was not shown. The kinds are in the order the
// validator checks them.
struct SummaryRejection {
    enum class Kind {
        empty,
        tooLong,           // `count`: characters
        tooManySentences,  // `count`: sentences
        contradiction,     // `text`: the all-clear phrase, or "claims a successful backup"
        missingFact,       // `fact`: the kind of the first problem left out
        inventedCause,     // `text`: the cause word
        inventedNumber,    // `text`: the number
    };

    Kind kind = Kind::empty;
    std::size_t count = 0;
    std::string text;
    StatusFact::Kind fact = StatusFact::Kind::unrecognised;

    static SummaryRejection empty() { return {}; }
    static SummaryRejection tooLong(std::size_t characters) {
        return counted(Kind::tooLong, characters);
    }
    static SummaryRejection tooManySentences(std::size_t sentences) {
        return counted(Kind::tooManySentences, sentences);
    }
    static SummaryRejection contradiction(std::string claim) {
        return worded(Kind::contradiction, std::move(claim));
    }
    static SummaryRejection missingFact(StatusFact::Kind kind) {
        SummaryRejection rejection;
        rejection.kind = Kind::missingFact;
        rejection.fact = kind;
        return rejection;
    }
    static SummaryRejection inventedCause(std::string word) {
        return worded(Kind::inventedCause, std::move(word));
    }
    static SummaryRejection inventedNumber(std::string number) {
        return worded(Kind::inventedNumber, std::move(number));
    }

    // One line for the log, e.g. `contradiction "up to date"`.
    std::string description() const;

    bool operator==(const SummaryRejection&) const = default;

private:
    static SummaryRejection counted(Kind kind, std::size_t count) {
        SummaryRejection rejection;
        rejection.kind = kind;
        rejection.count = count;
        return rejection;
    }
    static SummaryRejection worded(Kind kind, std::string text) {
        SummaryRejection rejection;
        rejection.kind = kind;
        rejection.text = std::move(text);
        return rejection;
    }
};

// Writes the description, so that test failures and logs read as words.
std::ostream& operator<<(std::ostream& out, const SummaryRejection& value);

}  // namespace kestrow
