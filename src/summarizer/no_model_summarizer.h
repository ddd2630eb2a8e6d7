#pragma once

#include "platform/status_summarizer.h"

namespace kestrow {

// The Linux edition has no on-device language model: the menu always shows the reason lines.
// The answer is deviceNotEligible rather than modelNotReady, because waiting will not change it
// and a caller should not retry.
class NoModelSummarizer final : public StatusSummarizer {
public:
    Answer summarize(const std::string& instructions, const std::string& prompt) override;
};

}  // namespace kestrow
