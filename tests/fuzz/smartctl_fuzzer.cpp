// smartctl's JSON comes from whatever version of the tool is installed and from the disk's own
// firmware: any of it must give a verdict or none, and a verdict is never empty.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "insights/drive_health.h"
#include "platform/linux/smartctl_status.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view json(reinterpret_cast<const char*>(data), size);
    const auto text = kestrow::SmartctlStatus::verdict(json);
    if (text && text->empty()) __builtin_trap();
    const auto status = kestrow::DriveHealth::status(text, false);
    if (status.name().empty()) __builtin_trap();
    return 0;
}
