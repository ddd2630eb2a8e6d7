// A model's rewrite is arbitrary text, and a failure reason passed through from the system is too.
// Input: reason lines separated by "\n", a NUL, then the rewrite; without a NUL the same bytes
// serve as both. Besides not crashing, the validator's promises are checked on every input.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "summarizer/status_fact.h"
#include "summarizer/status_summary_prompt.h"
#include "summarizer/summary_text.h"
#include "summarizer/summary_validator.h"

namespace {

using namespace kestrow;

void require(bool promise) {
    if (!promise) __builtin_trap();
}

std::vector<std::string> splitLines(std::string_view text) {
    std::vector<std::string> lines;
    std::size_t start = 0;
    for (std::size_t i = 0; i <= text.size(); ++i) {
        if (i < text.size() && text[i] != '\n') continue;
        lines.emplace_back(text.substr(start, i - start));
        start = i + 1;
    }
    return lines;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const auto nul = input.find('\0');
    const std::string_view reasons = nul == std::string_view::npos ? input : input.substr(0, nul);
    const std::string_view summary = nul == std::string_view::npos ? input : input.substr(nul + 1);

    const auto lines = splitLines(reasons);
    const auto facts = StatusFact::facts(lines);
    require(facts.size() == lines.size());
    for (std::size_t i = 0; i < facts.size(); ++i) {
        require(facts[i].line == lines[i]);
        require(!facts[i].proofGroups.empty());
        // A line always proves itself: a rewrite that quotes every line is never short of a fact.
        require(facts[i].mentionedIn(foldedForMatching(lines[i])));
    }

    const std::string prompt = StatusSummaryPrompt::build(facts, Wording::linux("restic"));
    for (const auto& line : lines) require(prompt.find("- " + line) != std::string::npos);

    const std::string folded = foldedForMatching(summary);
    require(foldedForMatching(folded) == folded);
    const std::string_view trimmed = trimmedText(summary);
    require(trimmedText(trimmed) == trimmed);

    const auto numbers = SummaryValidator::numbers(summary);
    for (const auto& number : numbers) {
        require(!number.empty() && summary.find(number) != std::string_view::npos);
        require(
            std::all_of(number.begin(), number.end(), [](char c) { return c >= '0' && c <= '9'; }));
        require(std::count(numbers.begin(), numbers.end(), number) == 1);
    }

    const auto validation = SummaryValidator::validate(summary, facts);
    require(SummaryValidator::validate(trimmed, facts) == validation);
    if (validation.accepted()) {
        require(!trimmed.empty() && characterCount(trimmed) <= SummaryValidator::maximumCharacters);
        for (const auto& fact : facts) require(!fact.isProblem() || fact.mentionedIn(folded));
        std::string factsText;
        for (const auto& line : lines) factsText += line + " ";
        const auto known = SummaryValidator::numbers(factsText);
        for (const auto& number : numbers) {
            require(std::find(known.begin(), known.end(), number) != known.end());
        }
    } else {
        const auto& rejection = *validation.rejection;
        if (rejection.kind == SummaryRejection::Kind::tooLong) {
            require(rejection.count > SummaryValidator::maximumCharacters);
        }
        if (rejection.kind == SummaryRejection::Kind::tooManySentences) {
            require(rejection.count > SummaryValidator::maximumSentences);
        }
        require(!rejection.description().empty());
    }
    return 0;
}
