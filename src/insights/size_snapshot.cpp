#include "insights/size_snapshot.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <limits>

#include "support/plist_value.h"

namespace kestrow {
namespace {

using Json = nlohmann::json;

// A whole, non-negative number that fits, from an integer or a real without a fraction.
std::optional<std::int64_t> byteCount(const Json& value) {
    if (value.is_number_unsigned()) {
        const auto n = value.get<std::uint64_t>();
        if (n > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
            return std::nullopt;
        return static_cast<std::int64_t>(n);
    }
    if (value.is_number_integer()) {
        const auto n = value.get<std::int64_t>();
        return n >= 0 ? std::optional(n) : std::nullopt;
    }
    if (value.is_number_float()) {
        const double d = value.get<double>();
        // 2^63 itself does not fit.
        if (!std::isfinite(d) || d < 0.0 || d >= 9.2233720368547758e18 || std::floor(d) != d)
            return std::nullopt;
        return static_cast<std::int64_t>(d);
    }
    return std::nullopt;
}

}  // namespace

std::string SizeSnapshot::toJson() const {
    Json object = Json::object();
    object["date"] = secondsSinceReferenceDate(date);
    if (freeBytes) object["freeBytes"] = *freeBytes;
    object["kind"] = kind == Kind::nightly ? "nightly" : "manual";
    Json folders = Json::object();
    for (const auto& [path, size] : sizes) folders[path] = size;
    object["sizes"] = std::move(folders);
    return object.dump();
}

std::optional<SizeSnapshot> SizeSnapshot::fromJson(std::string_view text) {
    const Json object = Json::parse(text, nullptr, false);
    if (object.is_discarded() || !object.is_object()) return std::nullopt;
    const auto date = object.find("date");
    if (date == object.end() || !date->is_number()) return std::nullopt;
    const auto when = checkedFromSecondsSinceReferenceDate(date->get<double>());
    if (!when) return std::nullopt;
    const auto folders = object.find("sizes");
    if (folders == object.end() || !folders->is_object()) return std::nullopt;

    SizeSnapshot snapshot;
    snapshot.date = *when;
    if (const auto kind = object.find("kind"); kind != object.end()) {
        snapshot.kind = kind->is_string() && kind->get_ref<const std::string&>() == "nightly"
                            ? Kind::nightly
                            : Kind::manual;
    }
    if (const auto free = object.find("freeBytes"); free != object.end()) {
        snapshot.freeBytes = byteCount(*free);
    }
    for (const auto& [path, size] : folders->items()) {
        if (const auto bytes = byteCount(size)) snapshot.sizes.emplace(path, *bytes);
    }
    return snapshot;
}

}  // namespace kestrow
