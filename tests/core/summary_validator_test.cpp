#include "summarizer/summary_validator.h"

#include <gtest/gtest.h>

#include <cctype>

#include "summarizer/no_model_summarizer.h"
#include "summarizer/status_summary.h"
#include "summarizer/status_summary_prompt.h"
#include "summarizer/summary_text.h"
#include "timemachine/protection_state_evaluator.h"

namespace kestrow {
namespace {

using namespace std::chrono_literals;
using Kind = StatusFact::Kind;

const WallTime kNow = std::chrono::sys_days(std::chrono::year(2024) / 5 / 2) + 18h;
constexpr const char* kDiskImage = "The backup disk image disconnected during the backup";
constexpr const char* kOutOfSpace = "The backup disk ran out of space";

// The evaluator's inputs, times in hours before now; what is not set stays unknown.
class Scenario {
public:
    Scenario() {
        facts_.timeMachineConfigured = true;
        facts_.now = kNow;
    }
    Scenario& notConfigured() {
        return set([](auto& f) { f.timeMachineConfigured = false; });
    }
    Scenario& success(double h) {
        return set([h](auto& f) { f.lastSuccessful = ago(h); });
    }
    Scenario& attempt(double h) {
        return set([h](auto& f) { f.lastAttempt = ago(h); });
    }
    // The previous evaluation saw the same attempt.
    Scenario& seen() {
        return set([](auto& f) { f.previousAttempt = f.lastAttempt; });
    }
    Scenario& running(bool b) {
        return set([b](auto& f) { f.backupRunning = b; });
    }
    Scenario& code(int c) {
        return set([c](auto& f) { f.lastResult = c; });
    }
    Scenario& reason(const char* r) {
        return set([r](auto& f) { f.failureReason = r; });
    }
    Scenario& readable(bool b) {
        return set([b](auto& f) { f.failureReasonReadable = b; });
    }
    Scenario& volume(bool b) {
        return set([b](auto& f) { f.backupVolumeAttached = b; });
    }
    Scenario& reachable(bool b) {
        return set([b](auto& f) { f.destinationReachable = b; });
    }
    Scenario& slept(double h) {
        return set([h](auto& f) { f.batteryLidSleepDuringBackup = ago(h); });
    }

    ProtectionVerdict verdict() const {
        return ProtectionStateEvaluator::fromThresholdHours(24.0).evaluate(facts_);
    }

private:
    static WallTime ago(double hours) { return addSeconds(kNow, -hours * 3600.0); }
    template <typename Change>
    Scenario& set(Change change) {
        change(facts_);
        return *this;
    }
    ProtectionStateEvaluator::Facts facts_;
};

// An attempt five hours ago that failed with code 19, after a backup thirty hours ago.
Scenario failed() {
    return Scenario().success(30).attempt(5).running(false).code(19);
}

std::vector<StatusFact> factsOf(const Scenario& s) {
    return StatusFact::facts(s.verdict());
}

struct VerdictCase {
    std::string name;
    Scenario scenario;
    std::vector<Kind> kinds;
    std::string natural;  // a free rewrite that must pass, where the wording is worth trying
};

// Every branch of the evaluator that shapes the reason lines.
std::vector<VerdictCase> verdictCases() {
    const Kind L = Kind::lastSuccessAge, R = Kind::backupRunning, N = Kind::noSuccessEver,
               A = Kind::attemptFailed, F = Kind::failureDetail, V = Kind::volumeDetached,
               O = Kind::destinationOffline;
    return {
        {"not configured", Scenario().notConfigured(), {Kind::notConfigured}, ""},
        {"unknown", Scenario(), {Kind::unknownState}, ""},
        {"protected", Scenario().success(2), {L}, ""},
        {"aging", Scenario().success(30).reachable(true), {L}, ""},
        {"stale", Scenario().success(72), {L}, ""},
        {"unavailable", Scenario().success(72).reachable(false), {L, O}, ""},
        {"running", Scenario().success(2).running(true), {L, R}, ""},
        {"failed before this run", failed().running(true).readable(true), {L, R, A, F}, ""},
        {"may still run", Scenario().success(30).attempt(1), {L, A}, ""},
        {"checking why", failed(), {L, A, F}, "It failed; still checking why."},
        {"helper", failed().readable(false), {L, A, F}, "It failed: Kestrow Helper can tell why."},
        {"no reason",
         failed().readable(true),
         {L, A, F},
         "It failed; Time Machine didn’t say why."},
        {"negative code", failed().code(-1).readable(true), {L, A, F}, ""},
        {"no code", failed().code(0), {L, A}, ""},
        {"disk image",
         failed().reason(kDiskImage),
         {L, A, F},
         "It failed: disk image disconnected."},
        {"slept",
         failed().reason(kDiskImage).slept(4),
         {L, A, F},
         "It failed as the Mac went to sleep."},
        {"slept too late", failed().attempt(20).reason(kDiskImage).slept(7), {L, A, F}, ""},
        {"out of space",
         failed().reason(kOutOfSpace),
         {L, A, F},
         "It failed: disk ran out of space."},
        {"volume, share up", Scenario().success(2).volume(false).reachable(true), {L, V}, ""},
        {"volume, share down",
         Scenario().success(30).volume(false).reachable(false),
         {L, V, O},
         ""},
        {"all at once",
         failed().success(72).running(true).reason(kOutOfSpace).volume(false).reachable(false),
         {L, R, A, F, V, O},
         ""},
        {"never, failed",
         Scenario().attempt(8).code(19).readable(false),
         {N, A, F},
         "No successful backup; the latest attempt isn't finished (Kestrow Helper can tell why)."},
        {"never, seen", Scenario().attempt(8).seen(), {N}, ""},
        {"never, running", Scenario().attempt(1).running(true).code(19), {N, R, A, F}, ""},
        {"never, may still run", Scenario().attempt(1), {N, A}, ""},
        {"never, out of space", Scenario().attempt(8).reason(kOutOfSpace), {N, A, F}, ""},
        {"never, offline", Scenario().attempt(8).reachable(false), {O}, ""},
    };
}

// What a careful writer would make of each line: natural wording, not the line's own, except for
// the failure details, which are quoted as a model tends to.
std::string paraphrase(const StatusFact& fact) {
    switch (fact.kind) {
        case Kind::backupRunning:
            return "a backup is running now";
        case Kind::noSuccessEver:
            return "this Mac has never been backed up";
        case Kind::attemptFailed:
            return fact.line.find("did not") != std::string::npos
                       ? "the last attempt failed"
                       : "the last attempt hasn't finished yet";
        case Kind::volumeDetached:
            return "the backup volume isn't attached";
        case Kind::destinationOffline:
            return "the destination can't be reached";
        case Kind::notConfigured:
            return "Time Machine isn't set up";
        case Kind::unknownState:
            return "the backup state is unknown";
        default:
            return foldedForMatching(fact.line);
    }
}

// One sentence from the paraphrases, leaving out the fact at `skip`.
std::string rewrite(const std::vector<StatusFact>& facts, std::size_t skip = SIZE_MAX) {
    std::string sentence;
    for (std::size_t i = 0; i < facts.size(); ++i) {
        if (i != skip) sentence += (sentence.empty() ? "" : ", ") + paraphrase(facts[i]);
    }
    if (sentence.empty()) return "Check your backups.";
    sentence[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(sentence[0])));
    return sentence + ".";
}

std::optional<SummaryRejection> check(std::string_view summary,
                                      const std::vector<StatusFact>& facts = {}) {
    return SummaryValidator::validate(summary, facts).rejection;
}

TEST(StatusFactTest, EveryEvaluatorVerdictHasAFaithfulRewriteAndRefusesUnfaithfulOnes) {
    for (const auto& c : verdictCases()) {
        SCOPED_TRACE(c.name);
        const auto verdict = c.scenario.verdict();
        const auto facts = StatusFact::facts(verdict);
        std::vector<Kind> kinds;
        for (const auto& fact : facts) kinds.push_back(fact.kind);
        // No expected list holds `unrecognised`: every line the evaluator writes is known.
        ASSERT_EQ(kinds, c.kinds) << testing::PrintToString(verdict.reasons);

        const std::string faithful = rewrite(facts);
        SCOPED_TRACE(faithful);
        ASSERT_EQ(check(faithful, facts), std::nullopt);
        if (!c.natural.empty()) {
            EXPECT_EQ(check(c.natural, facts), std::nullopt);
        }

        bool anyProblem = false;
        for (std::size_t i = 0; i < facts.size(); ++i) {
            if (!facts[i].isProblem()) continue;
            anyProblem = true;
            EXPECT_EQ(check(rewrite(facts, i), facts), SummaryRejection::missingFact(facts[i].kind))
                << "without " << facts[i].line;
        }
        EXPECT_EQ(check(faithful + " Everything is fine.", facts),
                  anyProblem ? std::optional(SummaryRejection::contradiction("everything is fine"))
                             : std::nullopt);

        std::string factsText;
        for (const auto& fact : facts) factsText += foldedForMatching(fact.line) + " ";
        const std::string body = faithful.substr(0, faithful.size() - 1);
        for (const std::string cause : {"offline", "disk image", "network"}) {
            if (factsText.find(cause) != std::string::npos) continue;
            EXPECT_EQ(check(body + ", perhaps " + cause + " trouble.", facts),
                      SummaryRejection::inventedCause(cause));
        }
        const auto known = SummaryValidator::numbers(factsText);
        std::string number = "7";
        while (std::find(known.begin(), known.end(), number) != known.end()) number += "7";
        EXPECT_EQ(check(body + " after " + number + " tries.", facts),
                  SummaryRejection::inventedNumber(number));
    }
}

TEST(StatusFactTest, ASystemReasonIsProvedByItsRemarkableWordsAndAnUnknownLineByItself) {
    const auto facts = StatusFact::facts(
        {"Last backup attempt did not complete", "The backup disk couldn’t be read (error 5)."});
    ASSERT_EQ(facts.at(1).kind, Kind::failureDetail);
    EXPECT_EQ(facts[1].proofGroups,
              (std::vector<StatusFact::ProofGroup>{{"disk", "couldn't", "read", "error", "5"}}));
    EXPECT_TRUE(facts[1].mentionedIn("the disk couldn't be read, error 5"));
    EXPECT_FALSE(facts[1].mentionedIn("the disk could not be read, error 5"));
    // Made only of words that any sentence about a backup carries: nothing less than all of it.
    EXPECT_EQ(StatusFact::failureReason("The backup was.").proofGroups,
              (std::vector<StatusFact::ProofGroup>{{"the backup was"}}));

    // Away from an attempt line, an unknown line is no failure reason and must be kept whole.
    const auto alone = StatusFact::facts({"Something odd happened."});
    ASSERT_EQ(alone.size(), 1u);
    EXPECT_EQ(alone[0].kind, Kind::unrecognised);
    EXPECT_TRUE(alone[0].isProblem());
    EXPECT_FALSE(alone[0].mentionedIn("something odd"));
    EXPECT_TRUE(alone[0].mentionedIn("backups: something odd happened, says the log"));
}

TEST(SummaryValidatorTest, ShapeChecksCountCharactersAndSentences) {
    const auto repeated = [](std::string_view piece, std::size_t times) {
        std::string text;
        for (std::size_t i = 0; i < times; ++i) text += piece;
        return text;
    };
    EXPECT_EQ(check("   "), SummaryRejection::empty());
    EXPECT_EQ(check("\n\t\u00a0\u2028 "), SummaryRejection::empty());
    EXPECT_EQ(check(repeated("a", 241)), SummaryRejection::tooLong(241));
    // Characters, not bytes, and the padding around the sentence is not counted.
    EXPECT_EQ(check("\n " + repeated("é", 240) + "\u00a0\n"), std::nullopt);
    EXPECT_EQ(check(repeated("é", 241)), SummaryRejection::tooLong(241));
    EXPECT_EQ(check("A. B. C. D."), SummaryRejection::tooManySentences(4));
    EXPECT_EQ(check("One! Two? Three. Four"), SummaryRejection::tooManySentences(4));
    EXPECT_EQ(check("Wait... what?! Fine"), std::nullopt);
}

TEST(SummaryValidatorTest, ClaimsCausesAndNumbersMustAgreeWithTheLines) {
    const auto stale = factsOf(failed().success(72).readable(true));
    EXPECT_EQ(
        check("Backups are up to date, but the last attempt did not complete (code 19).", stale),
        SummaryRejection::contradiction("up to date"));
    // Without a problem the all-clear is simply true.
    EXPECT_EQ(check("All good: last backup 2 hours ago.", factsOf(Scenario().success(2.1))),
              std::nullopt);

    const auto never = factsOf(Scenario().attempt(0).seen());
    ASSERT_EQ(never.at(0).kind, Kind::noSuccessEver);
    EXPECT_EQ(check("Your last backup was never made.", never),
              SummaryRejection::contradiction("claims a successful backup"));

    EXPECT_EQ(check("The last backup failed because of a network problem (code 19).", stale),
              SummaryRejection::inventedCause("network"));
    // The curly apostrophe is folded before the cause words are looked for.
    EXPECT_EQ(check("The last backup failed: it didn’t complete (code 19).", stale),
              SummaryRejection::inventedCause("didn't complete"));
    EXPECT_EQ(check("The last backup failed (code 19); the disk looks ENCRYPTED.", stale),
              SummaryRejection::inventedCause("encrypt"));
    EXPECT_EQ(check("Last backup 3 days ago.", factsOf(Scenario().success(49))),
              SummaryRejection::inventedNumber("3"));
}

TEST(SummaryValidatorTest, NumbersAreMaximalDigitRunsOfEveryScriptInOrder) {
    using Numbers = std::vector<std::string>;
    EXPECT_EQ(SummaryValidator::numbers("code 19, 2 days, 42%"), (Numbers{"19", "2", "42"}));
    EXPECT_EQ(SummaryValidator::numbers("v1.10 (code -1) 19 007 1"),
              (Numbers{"1", "10", "19", "007"}));
    // Arabic-Indic, fullwidth, Devanagari, mathematical bold and Adlam digits, and a run that
    // mixes scripts, are numbers as written.
    EXPECT_EQ(
        SummaryValidator::numbers("code \u0661\u0669, \uFF14\uFF12%, \u0969 "
                                  "\U0001D7D1 \U0001E953 1\u0662"),
        (Numbers{"\u0661\u0669", "\uFF14\uFF12", "\u0969", "\U0001D7D1", "\U0001E953", "1\u0662"}));
    // Numeric signs that are not decimal digits, and a cut-off sequence, are not.
    EXPECT_EQ(SummaryValidator::numbers("\u00BD \u00B2 \u2167 \u2460 \xD9 \xEF\xBC"), Numbers{});

    // The lines say "2 days": the same number in another script is no invention, any other is.
    const auto facts = factsOf(Scenario().success(49));
    EXPECT_EQ(check("Last backup \u0662 days ago.", facts), std::nullopt);
    EXPECT_EQ(check("Last backup \uFF12 days ago.", facts), std::nullopt);
    EXPECT_EQ(check("Last backup \u0663 days ago.", facts),
              SummaryRejection::inventedNumber("\u0663"));
    EXPECT_EQ(check("Last backup \uFF13 days ago.", facts),
              SummaryRejection::inventedNumber("\uFF13"));
    EXPECT_EQ(check("Last backup \U0001D7D1 days ago.", facts),
              SummaryRejection::inventedNumber("\U0001D7D1"));
    EXPECT_EQ(check("Last backup 1\u0662 days ago.", facts),
              SummaryRejection::inventedNumber("1\u0662"));
}

class ScriptedSummarizer final : public StatusSummarizer {
public:
    explicit ScriptedSummarizer(Answer answer) : answer_(std::move(answer)) {}
    Answer summarize(const std::string& instructions, const std::string& prompt) override {
        ++calls;
        asked = {instructions, prompt};
        return answer_;
    }
    int calls = 0;
    std::pair<std::string, std::string> asked;

private:
    Answer answer_;
};

TEST(StatusSummaryTest, ShowsOnlyACheckedRewriteOfAVerdictWorthSummarizing) {
    using Outcome = StatusSummary::Outcome;
    const Wording exact = Wording::exact();
    const auto verdict = failed().verdict();
    ScriptedSummarizer faithful(std::string("  The last backup failed; still checking why.\n"));
    EXPECT_EQ(StatusSummary::make(verdict, &faithful, exact),
              Outcome("The last backup failed; still checking why."));
    EXPECT_EQ(faithful.asked.first, StatusSummaryPrompt::kInstructions);
    EXPECT_EQ(faithful.asked.second, StatusSummaryPrompt::build(StatusFact::facts(verdict), exact));
    // On Linux the model is told what it writes for, in that platform's words.
    ScriptedSummarizer onLinux(std::string("The last backup failed; still checking why."));
    StatusSummary::make(verdict, &onLinux, Wording::linux("restic"));
    EXPECT_EQ(onLinux.asked.first,
              "You rewrite backup status lines. You never omit a problem, never invent one, and "
              "never claim anything is fine.");
    EXPECT_NE(onLinux.asked.second.find("ONE short sentence for a Linux desktop tray app."),
              std::string::npos);

    ScriptedSummarizer careless(std::string("Backups are working normally."));
    EXPECT_EQ(StatusSummary::make(verdict, &careless, exact),
              Outcome(SummaryUnavailability::rejected(
                  SummaryRejection::contradiction("working normally"))));
    ScriptedSummarizer loading(SummaryUnavailability::modelNotReady());
    EXPECT_EQ(StatusSummary::make(verdict, &loading, exact),
              Outcome(SummaryUnavailability::modelNotReady()));
    NoModelSummarizer none;
    EXPECT_EQ(StatusSummary::make(verdict, &none, exact),
              Outcome(SummaryUnavailability::deviceNotEligible()));
    EXPECT_EQ(StatusSummary::make(verdict, nullptr, exact),
              Outcome(SummaryUnavailability::deviceNotEligible()));

    // One line, or healthy lines only (a stale age, which no problem fact would guard), never
    // reach the model.
    ScriptedSummarizer eager(std::string("All good."));
    for (const auto& quiet : {Scenario().notConfigured(), Scenario().success(72).running(true)}) {
        EXPECT_EQ(StatusSummary::make(quiet.verdict(), &eager, exact),
                  Outcome(SummaryUnavailability::notWorthSummarizing()));
    }
    EXPECT_EQ(eager.calls, 0);
}

TEST(StatusSummaryPromptTest, ListsEachLineBetweenTheFixedTexts) {
    const auto prompt =
        StatusSummaryPrompt::build(StatusFact::facts({"First line", "Second"}), Wording::exact());
    EXPECT_EQ(prompt.rfind("Rewrite these backup status lines as ONE short sentence", 0), 0u);
    const std::string tail =
        "Do not say anything is fine.\n\n- First line\n- Second\n\nReply with the sentence only.";
    ASSERT_GT(prompt.size(), tail.size());
    EXPECT_EQ(prompt.substr(prompt.size() - tail.size()), tail);
}

}  // namespace
}  // namespace kestrow
