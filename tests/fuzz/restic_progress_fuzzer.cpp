// restic's progress stream is outside data: any line, or a stream of them, must leave a reading
// within the ranges it promises and the kept errors within their bounds.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "backup/restic_progress.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    kestrow::ResticProgress progress;
    progress.read(text);  // the whole input as one line
    std::size_t start = 0;
    while (start <= text.size()) {
        auto end = text.find('\n', start);
        if (end == std::string_view::npos) end = text.size();
        progress.read(text.substr(start, end - start));
        start = end + 1;
    }
    const auto live = progress.reading();
    if (live.running != true || !live.status.phase) __builtin_trap();
    if (live.status.percent && !(*live.status.percent >= 0.0 && *live.status.percent <= 1.0)) {
        __builtin_trap();
    }
    if (live.timeRemaining && !(std::isfinite(*live.timeRemaining) && *live.timeRemaining > 0)) {
        __builtin_trap();
    }
    if (progress.errors().size() > kestrow::ResticProgress::kErrorsKept) __builtin_trap();
    for (const auto& error : progress.errors()) {
        if (error.size() > kestrow::ResticProgress::kLongestError + 4) __builtin_trap();
    }
    return 0;
}
