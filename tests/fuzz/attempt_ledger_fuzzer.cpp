// The attempt ledger's lines are read back after crashes and hand-edits: any line either reads
// as an attempt that writes back to the same attempt, or is passed over.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "backup/attempt_ledger.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto attempt = kestrow::AttemptLedger::parseLine(text);
    if (!attempt) return 0;
    if (attempt->jobId.empty()) __builtin_trap();
    const auto again = kestrow::AttemptLedger::parseLine(kestrow::AttemptLedger::lineFor(*attempt));
    if (!again || again->jobId != attempt->jobId || again->start != attempt->start ||
        again->end != attempt->end || again->failure != attempt->failure ||
        again->exitStatus != attempt->exitStatus) {
        __builtin_trap();
    }
    return 0;
}
