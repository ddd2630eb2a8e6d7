// Settings files are outside data: whatever bytes they hold, parsing must not crash, and whatever
// parses must survive being written back and read again.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "support/plist_value.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    if (const auto value = kestrow::PlistValue::parse(bytes)) {
        const auto again = kestrow::PlistValue::parse(value->toXml());
        if (!again) __builtin_trap();
    }
    return 0;
}
