// Snapshot files sit in a folder anyone with the user's rights can write to: whatever is found
// there must either read as a snapshot that writes back the same, or not read at all.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "insights/size_snapshot.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto snapshot = kestrow::SizeSnapshot::fromJson(text);
    if (!snapshot) return 0;
    const auto again = kestrow::SizeSnapshot::fromJson(snapshot->toJson());
    if (!again || again->sizes != snapshot->sizes || again->freeBytes != snapshot->freeBytes ||
        again->kind != snapshot->kind)
        __builtin_trap();
    return 0;
}
