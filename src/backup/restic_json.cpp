#include "backup/restic_json.h"

#include <cmath>

#include "support/iso_date.h"
#include "support/nesting_depth.h"

namespace kestrow::restic_json {

using nlohmann::json;

// restic's documents nest four levels at most.
constexpr int kDeepestDocument = 16;

json parse(std::string_view text, std::size_t limit) {
    if (text.size() > limit || !jsonNestingWithin(text, kDeepestDocument)) {
        return json(json::value_t::discarded);
    }
    return json::parse(text, nullptr, false);
}

std::optional<double> number(const json& object, const char* key) {
    if (!object.is_object()) return std::nullopt;
    const auto found = object.find(key);
    if (found == object.end() || !found->is_number()) return std::nullopt;
    const double value = found->get<double>();
    if (!std::isfinite(value)) return std::nullopt;
    return value;
}

std::optional<std::uint64_t> count(const json& object, const char* key) {
    const auto value = number(object, key);
    if (!value || *value < 0 || *value > 1e18) return std::nullopt;
    return static_cast<std::uint64_t>(*value);
}

std::optional<std::string> text(const json& object, const char* key) {
    if (!object.is_object()) return std::nullopt;
    const auto found = object.find(key);
    if (found == object.end() || !found->is_string()) return std::nullopt;
    return found->get<std::string>();
}

std::optional<WallTime> time(const json& object, const char* key) {
    const auto value = text(object, key);
    if (!value) return std::nullopt;
    return parseIsoDate(*value);
}

}  // namespace kestrow::restic_json
