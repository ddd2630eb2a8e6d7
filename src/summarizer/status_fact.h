#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "timemachine/protection_state.h"

namespace kestrow {

// One reason line of a protection verdict, with what a rewrite of it must keep. A rewrite by a
// language model is only shown when every problem among these facts survives it.
struct StatusFact {
    // The order matters: every kind from noSuccessEver on is a problem.
    enum class Kind {
        lastSuccessAge,
        backupRunning,
        noSuccessEver,
        attemptFailed,
        failureDetail,
        volumeDetached,
        destinationOffline,
        notConfigured,
        unknownState,
        unrecognised,
    };
    using ProofGroup = std::vector<std::string>;

    Kind kind = Kind::unrecognised;
    std::string line;
    // Lower-case phrases (folded as by foldedForMatching). A rewrite mentions the fact when it
    // holds every phrase of at least one group; an empty group is met by any rewrite.
    std::vector<ProofGroup> proofGroups;

    bool isProblem() const { return kind >= Kind::noSuccessEver; }
    // `foldedText` must already be folded by foldedForMatching.
    bool mentionedIn(std::string_view foldedText) const;

    // The fact a reason line stands for, recognised by its wording. A line of none of the known
    // wordings is `unrecognised` and must then be carried by the rewrite word for word.
    static StatusFact classify(const std::string& line);
    // A failure reason as the system worded it, which follows an attempt line as its detail.
    static StatusFact failureReason(const std::string& line);
    // The verdict's lines in order. An unrecognised line right after an attempt line is the
    // attempt's failure reason, passed through from the system, and is read as one.
    static std::vector<StatusFact> facts(const std::vector<std::string>& reasons);
    static std::vector<StatusFact> facts(const ProtectionVerdict& verdict) {
        return facts(verdict.reasons);
    }

    bool operator==(const StatusFact&) const = default;
};

std::string_view statusFactKindName(StatusFact::Kind kind);

}  // namespace kestrow
