#pragma once

#include <string>

namespace kestrow::testing {

// `xml` as libplist writes it in the binary format Time Machine and the system use, so each
// reader is checked on both forms of the same document.
std::string binaryPlistFromXml(const std::string& xml);

}  // namespace kestrow::testing
