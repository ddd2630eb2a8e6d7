#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kestrow {

// An Apple build number such as "21B80" or the seed "21A5277h".
struct AppleBuild {
    int major = 0;
    char train = 'A';
    int number = 0;
    std::string suffix;

    bool operator==(const AppleBuild&) const = default;

    // Nothing unless it starts with digits, one train letter and digits again.
    static std::optional<AppleBuild> parse(std::string_view text);

    // Seeds carry a suffix and come before the final build of their train, whatever their
    // number: 21A5277h < 21A329 < 21B80.
    bool operator<(const AppleBuild& other) const;
};

}  // namespace kestrow
