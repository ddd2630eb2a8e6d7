#pragma once

#include <string>
#include <string_view>

namespace kestrow {

// Lower-cases A–Z only, whatever the locale: names and words from tools, files and the system
// compare the same on every machine, and bytes of UTF-8 sequences pass through untouched.
inline std::string asciiLowercase(std::string_view text) {
    std::string lower(text);
    for (char& c : lower) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return lower;
}

}  // namespace kestrow
