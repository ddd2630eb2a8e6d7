#include "support/byte_count_format.h"

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <string_view>

namespace kestrow {

std::string formatByteCount(std::int64_t bytes) {
    if (bytes == 0) return "Zero KB";
    const std::string sign = bytes < 0 ? "-" : "";
    // Magnitude as a double: exact below 2^53, and display rounding hides the rest.
    const double magnitude = std::fabs(static_cast<double>(bytes));
    if (magnitude < 1000.0) {
        return fmt::format("{}{} {}", sign, static_cast<std::int64_t>(magnitude),
                           magnitude == 1.0 ? "byte" : "bytes");
    }
    struct Unit {
        std::string_view name;
        int decimals;
    };
    static constexpr std::array<Unit, 6> units{
        {{"KB", 0}, {"MB", 1}, {"GB", 2}, {"TB", 2}, {"PB", 2}, {"EB", 2}}};
    double value = magnitude / 1000.0;
    std::size_t index = 0;
    for (;;) {
        const double scale = std::pow(10.0, units[index].decimals);
        const double rounded = std::round(value * scale) / scale;
        // 999.96 MB rounds to 1000 MB: say 1 GB instead.
        if (rounded >= 1000.0 && index + 1 < units.size()) {
            value /= 1000.0;
            ++index;
            continue;
        }
        std::string number = fmt::format("{:.{}f}", rounded, units[index].decimals);
        if (number.find('.') != std::string::npos) {
            while (number.back() == '0') number.pop_back();
            if (number.back() == '.') number.pop_back();
        }
        return fmt::format("{}{} {}", sign, number, units[index].name);
    }
}

}  // namespace kestrow
