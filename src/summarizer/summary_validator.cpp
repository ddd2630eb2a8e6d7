#include "summarizer/summary_validator.h"

#include <algorithm>
#include <string_view>
#include <unordered_set>

#include "summarizer/summary_text.h"

namespace kestrow {

namespace {

constexpr std::string_view kAllClearPhrases[] = {"up to date",         "no issues",
                                                 "no problems",        "nothing is wrong",
                                                 "everything is fine", "everything looks good",
                                                 "all good",           "completed successfully",
                                                 "succeeded",          "you're protected",
                                                 "you are protected",  "no action needed",
                                                 "working normally"};

constexpr std::string_view kSuccessClaims[] = {"last successful backup", "last backup was"};

// Deliberately plain substrings: "encrypt" also catches "encrypted", "smart" also "smartly".
constexpr std::string_view kCauseWords[] = {
    "disk image",       "not attached",    "detached",   "offline",      "unreachable",
    "did not complete", "didn't complete", "ran out of", "out of space", "no space",
    "not configured",   "encrypt",         "corrupt",    "permission",   "full disk access",
    "network",          "password",        "reformat",   "erase",        "sparsebundle",
    "hardware",         "failing",         "smart"};

bool contains(std::string_view text, std::string_view phrase) {
    return text.find(phrase) != std::string_view::npos;
}

std::size_t sentenceCount(std::string_view text) {
    std::size_t count = 0;
    std::size_t start = 0;
    for (std::size_t i = 0; i <= text.size(); ++i) {
        if (i < text.size() && text[i] != '.' && text[i] != '!' && text[i] != '?') continue;
        if (!trimmedText(text.substr(start, i - start)).empty()) ++count;
        start = i + 1;
    }
    return count;
}

}  // namespace

SummaryValidator::Validation SummaryValidator::validate(std::string_view summary,
                                                        const std::vector<StatusFact>& facts) {
    const auto reject = [](SummaryRejection rejection) { return Validation{std::move(rejection)}; };

    const std::string_view trimmed = trimmedText(summary);
    if (trimmed.empty()) return reject(SummaryRejection::empty());
    if (const auto length = characterCount(trimmed); length > maximumCharacters) {
        return reject(SummaryRejection::tooLong(length));
    }
    if (const auto sentences = sentenceCount(trimmed); sentences > maximumSentences) {
        return reject(SummaryRejection::tooManySentences(sentences));
    }

    const std::string rewrite = foldedForMatching(trimmed);
    std::string factsText;
    for (const auto& fact : facts) {
        if (!factsText.empty()) factsText += ' ';
        factsText += fact.line;
    }
    factsText = foldedForMatching(factsText);

    const bool anyProblem =
        std::any_of(facts.begin(), facts.end(), [](const StatusFact& f) { return f.isProblem(); });
    if (anyProblem) {
        for (const auto phrase : kAllClearPhrases) {
            if (contains(rewrite, phrase)) {
                return reject(SummaryRejection::contradiction(std::string(phrase)));
            }
        }
    }

    const bool neverSucceeded = std::any_of(facts.begin(), facts.end(), [](const StatusFact& f) {
        return f.kind == StatusFact::Kind::noSuccessEver;
    });
    if (neverSucceeded) {
        for (const auto claim : kSuccessClaims) {
            if (contains(rewrite, claim)) {
                return reject(SummaryRejection::contradiction("claims a successful backup"));
            }
        }
    }

    for (const auto& fact : facts) {
        if (fact.isProblem() && !fact.mentionedIn(rewrite)) {
            return reject(SummaryRejection::missingFact(fact.kind));
        }
    }

    for (const auto word : kCauseWords) {
        if (contains(rewrite, word) && !contains(factsText, word)) {
            return reject(SummaryRejection::inventedCause(std::string(word)));
        }
    }

    std::unordered_set<std::string> known;
    for (auto& run : digitRuns(factsText)) known.insert(std::move(run.value));
    for (const auto& run : digitRuns(rewrite)) {
        if (!known.contains(run.value)) return reject(SummaryRejection::inventedNumber(run.text));
    }
    return {};
}

std::vector<std::string> SummaryValidator::numbers(std::string_view text) {
    std::vector<std::string> found;
    std::unordered_set<std::string> seen;
    for (auto& run : digitRuns(text)) {
        if (seen.insert(run.text).second) found.push_back(std::move(run.text));
    }
    return found;
}

}  // namespace kestrow
