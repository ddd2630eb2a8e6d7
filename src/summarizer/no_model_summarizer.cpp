#include "summarizer/no_model_summarizer.h"

namespace kestrow {

StatusSummarizer::Answer NoModelSummarizer::summarize(const std::string&, const std::string&) {
    return SummaryUnavailability::deviceNotEligible();
}

}  // namespace kestrow
