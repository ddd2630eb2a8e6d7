#pragma once

#include <string>
#include <variant>

#include "summarizer/summary_unavailability.h"

namespace kestrow {

// The on-device language model that rewrites the status lines as one sentence.
class StatusSummarizer {
public:
    using Answer = std::variant<std::string, SummaryUnavailability>;

    virtual ~StatusSummarizer() = default;
    // Blocks while the model writes, which can take seconds: call it from a serial queue, never
    // from the main executor. The answer is the model's raw text, unchecked; when there is none,
    // why (the model is missing, switched off, still loading, or the generation failed).
    virtual Answer summarize(const std::string& instructions, const std::string& prompt) = 0;
};

}  // namespace kestrow
