// `kestrow settings set` turns command-line text into typed values for every key.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "app/settings/settings_catalog.h"
#include "support/iso_date.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    for (const auto& setting : kestrow::settingDescriptors())
        (void)kestrow::parseSettingValue(setting, text);
    if (const auto date = kestrow::parseIsoDate(text)) (void)kestrow::formatIsoDate(*date);
    return 0;
}
