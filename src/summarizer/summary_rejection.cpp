#include "summarizer/summary_rejection.h"

#include <ostream>

namespace kestrow {

std::string SummaryRejection::description() const {
    switch (kind) {
        case Kind::empty:
            return "empty";
        case Kind::tooLong:
            return "too long (" + std::to_string(count) + " characters)";
        case Kind::tooManySentences:
            return "too many sentences (" + std::to_string(count) + ")";
        case Kind::contradiction:
            return "contradiction \"" + text + "\"";
        case Kind::missingFact:
            return "missing fact " + std::string(statusFactKindName(fact));
        case Kind::inventedCause:
            return "invented cause \"" + text + "\"";
        case Kind::inventedNumber:
            return "invented number " + text;
    }
    return "rejected";
}

std::ostream& operator<<(std::ostream& out, const SummaryRejection& value) {
    return out << value.description();
}

}  // namespace kestrow
