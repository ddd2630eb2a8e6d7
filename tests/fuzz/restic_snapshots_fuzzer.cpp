// `restic snapshots --json` is outside data: any text either reads as snapshots that each have
// an id, oldest first, or is refused whole.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "backup/restic_snapshots.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto snapshots = kestrow::ResticSnapshots::parse(text);
    if (!snapshots) return 0;
    for (std::size_t i = 0; i < snapshots->size(); ++i) {
        if ((*snapshots)[i].id.empty()) __builtin_trap();
        if (i > 0 && (*snapshots)[i].end < (*snapshots)[i - 1].end) __builtin_trap();
    }
    return 0;
}
