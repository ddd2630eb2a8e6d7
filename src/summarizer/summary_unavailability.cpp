#include "summarizer/summary_unavailability.h"

#include <ostream>

namespace kestrow {

std::string SummaryUnavailability::description() const {
    switch (kind) {
        case Kind::generationFailed:
            return "generation failed: " + text;
        case Kind::rejected:
            return "rewrite rejected: " + (rejection ? rejection->description() : "unknown");
        case Kind::osTooOld:
            return "the system is too old for the on-device model";
        case Kind::deviceNotEligible:
            return "this machine has no on-device model";
        case Kind::appleIntelligenceNotEnabled:
            return "the on-device model is turned off";
        case Kind::modelNotReady:
            return "the on-device model is not ready yet";
        case Kind::notWorthSummarizing:
            return "nothing worth summarizing";
    }
    return "unavailable";
}

std::ostream& operator<<(std::ostream& out, const SummaryUnavailability& value) {
    return out << value.description();
}

}  // namespace kestrow
