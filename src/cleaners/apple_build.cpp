#include "cleaners/apple_build.h"

#include <limits>
#include <tuple>

namespace kestrow {

namespace {

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// Consumes the leading digits of `text`; nothing when there are none or they overflow an int.
std::optional<int> takeNumber(std::string_view& text) {
    std::size_t length = 0;
    int value = 0;
    while (length < text.size() && isDigit(text[length])) {
        const int digit = text[length] - '0';
        if (value > (std::numeric_limits<int>::max() - digit) / 10) return std::nullopt;
        value = value * 10 + digit;
        ++length;
    }
    if (length == 0) return std::nullopt;
    text.remove_prefix(length);
    return value;
}

}  // namespace

std::optional<AppleBuild> AppleBuild::parse(std::string_view text) {
    AppleBuild build;
    const auto major = takeNumber(text);
    if (!major || text.empty()) return std::nullopt;
    build.major = *major;
    build.train = text.front();
    text.remove_prefix(1);
    const auto number = takeNumber(text);
    if (!number) return std::nullopt;
    build.number = *number;
    build.suffix = std::string(text);
    return build;
}

bool AppleBuild::operator<(const AppleBuild& other) const {
    // Trains compare as characters of a string do, that is as unsigned bytes.
    const auto key = [](const AppleBuild& b) {
        return std::make_tuple(b.major, static_cast<unsigned char>(b.train),
                               !b.suffix.empty() ? 0 : 1, b.number, std::string_view(b.suffix));
    };
    return key(*this) < key(other);
}

}  // namespace kestrow
