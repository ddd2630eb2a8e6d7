#include "summarizer/status_fact.h"

#include <algorithm>
#include <iterator>
#include <optional>

#include "summarizer/summary_text.h"

namespace kestrow {

namespace {

using Kind = StatusFact::Kind;
using Groups = std::vector<StatusFact::ProofGroup>;

// Each wording of a problem has a few groups because a one-sentence rewrite rarely keeps the
// line's exact words ("isn't attached" for "is not attached"). None of them holds a cause word
// that the validator refuses when the lines lack it: "didn't complete", "detached" or
// "unreachable" would let a rewrite through one check only to be turned away by the next.
const Groups kNoSuccessEver = {{"no successful backup"}, {"no completed backup"},
                               {"never", "backed up"},   {"never", "backup"},
                               {"not been backed up"},   {"n't been backed up"}};
// "failed" is allowed here but not below: this attempt is known to have failed.
const Groups kDidNotComplete = {{"did not complete"}, {"not completed"}, {"incomplete"},
                                {"failed"},           {"unsuccessful"},  {"did not finish"},
                                {"didn't finish"}};
// The attempt may still be under way, so only wordings that leave that open will do.
const Groups kHasNotCompleted = {{"not completed"}, {"n't completed"},      {"not finished"},
                                 {"n't finished"},  {"not yet", "complet"}, {"not yet", "finish"},
                                 {"incomplete"}};
const Groups kVolumeDetached = {
    {"not attached"}, {"n't attached"}, {"not mounted"}, {"n't mounted"}, {"unmounted"}};
const Groups kDestinationOffline = {{"offline"},        {"not reachable"},  {"n't reachable"},
                                    {"not be reached"}, {"n't be reached"}, {"cannot be reached"}};
const Groups kNotConfigured = {
    {"not configured"}, {"n't configured"}, {"not set up"}, {"n't set up"}};
const Groups kUnknownState = {
    {"unable to determine"}, {"cannot determine"}, {"n't determine"}, {"unknown"},
    {"cannot tell"},         {"n't tell"},         {"unclear"}};
// The fixed failure details. The helper line asks for an action, so the helper must stay; the
// others may be reduced to their result code.
const Groups kSleptOnBattery = {{"slept"}, {"sleep"}, {"lid", "closed"}};
const Groups kDiskImage = {{"disk image", "disconnect"}};

// Words of a system-given failure reason that a faithful rewrite may leave out: the grammar, and
// the words any sentence about a backup carries anyway.
constexpr std::string_view kUnremarkableWords[] = {
    "a",   "an",   "the",  "of",   "to",     "in",      "on",    "at",     "by",
    "for", "from", "with", "into", "during", "while",   "and",   "or",     "as",
    "is",  "are",  "was",  "were", "be",     "been",    "being", "has",    "have",
    "had", "did",  "does", "do",   "could",  "would",   "can",   "will",   "should",
    "it",  "its",  "this", "that", "backup", "backups", "time",  "machine"};

bool startsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

bool endsWith(std::string_view text, std::string_view suffix) {
    return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

// The line as it is recognised: folded, trimmed, and without a closing full stop.
std::string recognisable(const std::string& line) {
    std::string text = foldedForMatching(trimmedText(line));
    while (!text.empty() && (text.back() == '.' || text.back() == ' ')) text.pop_back();
    return text;
}

StatusFact fact(Kind kind, const std::string& line, Groups groups) {
    return StatusFact{kind, line, std::move(groups)};
}

// "... (code N)": the code that follows one of the fixed openings, or nothing.
std::optional<std::string> resultCode(std::string_view text, std::string_view opening) {
    const std::string prefix = std::string(opening) + " (code ";
    if (!startsWith(text, prefix) || !endsWith(text, ")")) return std::nullopt;
    const auto code = text.substr(prefix.size(), text.size() - prefix.size() - 1);
    if (code.empty()) return std::nullopt;
    return std::string(code);
}

bool isWordByte(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return (byte >= 'a' && byte <= 'z') || (byte >= '0' && byte <= '9') || byte == '\'' ||
           byte >= 0x80;
}

}  // namespace

bool StatusFact::mentionedIn(std::string_view foldedText) const {
    return std::any_of(proofGroups.begin(), proofGroups.end(), [&](const ProofGroup& group) {
        return std::all_of(group.begin(), group.end(), [&](const std::string& phrase) {
            return foldedText.find(phrase) != std::string_view::npos;
        });
    });
}

StatusFact StatusFact::classify(const std::string& line) {
    const std::string text = recognisable(line);
    // The age may be left out: the rewrite is told it may drop how long ago something happened.
    if (startsWith(text, "last successful backup ") && endsWith(text, " ago")) {
        return fact(Kind::lastSuccessAge, line, {{}});
    }
    if (text == "backup in progress") return fact(Kind::backupRunning, line, {{}});
    if (text == "no successful backup detected") {
        return fact(Kind::noSuccessEver, line, kNoSuccessEver);
    }
    if (text == "last backup attempt did not complete") {
        return fact(Kind::attemptFailed, line, kDidNotComplete);
    }
    if (text == "last backup attempt has not completed") {
        return fact(Kind::attemptFailed, line, kHasNotCompleted);
    }
    if (auto code = resultCode(text, "checking why")) {
        return fact(Kind::failureDetail, line, {{"checking"}, {"code " + *code}});
    }
    if (resultCode(text, "kestrow helper is needed to see why")) {
        return fact(Kind::failureDetail, line, {{"helper"}});
    }
    if (auto code = resultCode(text, "time machine didn't say why")) {
        return fact(Kind::failureDetail, line,
                    {{"didn't say"}, {"did not say"}, {"no reason"}, {"code " + *code}});
    }
    if (text == "backup cut off: mac slept on battery with the lid closed") {
        return fact(Kind::failureDetail, line, kSleptOnBattery);
    }
    if (text == "the backup disk image disconnected during the backup") {
        return fact(Kind::failureDetail, line, kDiskImage);
    }
    if (text == "the backup volume is not attached" ||
        text == "the backup volume is not attached; the share itself is connected") {
        return fact(Kind::volumeDetached, line, kVolumeDetached);
    }
    if (text == "backup destination is offline") {
        return fact(Kind::destinationOffline, line, kDestinationOffline);
    }
    if (text == "time machine is not configured") {
        return fact(Kind::notConfigured, line, kNotConfigured);
    }
    if (text == "unable to determine current backup state") {
        return fact(Kind::unknownState, line, kUnknownState);
    }
    // Nothing is known about what this line says, so nothing short of the line itself proves
    // that a rewrite kept it. It counts as a problem: dropping it is never safe.
    return fact(Kind::unrecognised, line, {{text}});
}

StatusFact StatusFact::failureReason(const std::string& line) {
    // A reason worded by the system can be anything, so its proof is its remarkable words: every
    // word outside the grammar and the backup vocabulary, all of them in one group and in any
    // order ("the disk ran out of space" proves "The backup disk ran out of space"). A rewrite
    // that swaps one for a synonym is refused and the lines are shown instead, which is the safe
    // side. A reason of unremarkable words only must be carried whole.
    const std::string text = recognisable(line);
    ProofGroup words;
    for (std::size_t i = 0; i < text.size();) {
        if (!isWordByte(text[i])) {
            ++i;
            continue;
        }
        std::size_t end = i;
        while (end < text.size() && isWordByte(text[end])) ++end;
        std::string_view word(text.data() + i, end - i);
        while (!word.empty() && word.front() == '\'') word.remove_prefix(1);
        while (!word.empty() && word.back() == '\'') word.remove_suffix(1);
        const bool unremarkable =
            std::find(std::begin(kUnremarkableWords), std::end(kUnremarkableWords), word) !=
            std::end(kUnremarkableWords);
        if (!word.empty() && !unremarkable &&
            std::find(words.begin(), words.end(), word) == words.end()) {
            words.emplace_back(word);
        }
        i = end;
    }
    if (words.empty()) words.push_back(text);
    return fact(Kind::failureDetail, line, {std::move(words)});
}

std::vector<StatusFact> StatusFact::facts(const std::vector<std::string>& reasons) {
    std::vector<StatusFact> result;
    result.reserve(reasons.size());
    for (const auto& line : reasons) {
        StatusFact next = classify(line);
        if (next.kind == Kind::unrecognised && !result.empty() &&
            result.back().kind == Kind::attemptFailed) {
            next = failureReason(line);
        }
        result.push_back(std::move(next));
    }
    return result;
}

std::string_view statusFactKindName(StatusFact::Kind kind) {
    switch (kind) {
        case Kind::lastSuccessAge:
            return "lastSuccessAge";
        case Kind::backupRunning:
            return "backupRunning";
        case Kind::noSuccessEver:
            return "noSuccessEver";
        case Kind::attemptFailed:
            return "attemptFailed";
        case Kind::failureDetail:
            return "failureDetail";
        case Kind::volumeDetached:
            return "volumeDetached";
        case Kind::destinationOffline:
            return "destinationOffline";
        case Kind::notConfigured:
            return "notConfigured";
        case Kind::unknownState:
            return "unknownState";
        case Kind::unrecognised:
            return "unrecognised";
    }
    return "unrecognised";
}

}  // namespace kestrow
