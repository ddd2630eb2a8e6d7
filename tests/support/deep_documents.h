#pragma once

#include <string>

namespace kestrow::testing {

// Well-formed documents of `levels` nested arrays around one `true`, as an attacker would write
// them to overflow a parser's stack: a property list in XML and in the binary format, and JSON.
std::string deepXmlPlist(int levels);
std::string deepBinaryPlist(int levels);
std::string deepJson(int levels);

}  // namespace kestrow::testing
