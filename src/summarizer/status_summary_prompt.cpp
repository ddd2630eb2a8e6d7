#include "summarizer/status_summary_prompt.h"

namespace kestrow {

std::string StatusSummaryPrompt::build(const std::vector<StatusFact>& facts,
                                       const Wording& wording) {
    std::string lines;
    for (const auto& fact : facts) {
        if (!lines.empty()) lines += '\n';
        lines += "- " + fact.line;
    }
    return wording(
               "Rewrite these backup status lines as ONE short sentence for a Mac menu bar app. "
               "Keep every problem that is mentioned; you may drop how long ago something "
               "happened. Do not add any cause that is not listed. Do not invent numbers. Do not "
               "say anything is fine.") +
           "\n\n" + lines + "\n\nReply with the sentence only.";
}

}  // namespace kestrow
