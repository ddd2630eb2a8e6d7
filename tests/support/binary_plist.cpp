#include "support/binary_plist.h"

#include <plist/plist.h>

#include <cstdint>

namespace kestrow::testing {

std::string binaryPlistFromXml(const std::string& xml) {
    plist_t node = nullptr;
    plist_from_xml(xml.data(), static_cast<std::uint32_t>(xml.size()), &node);
    char* bytes = nullptr;
    std::uint32_t length = 0;
    plist_to_bin(node, &bytes, &length);
    std::string out(bytes, length);
    plist_to_bin_free(bytes);
    plist_free(node);
    return out;
}

}  // namespace kestrow::testing
