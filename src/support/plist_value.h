#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

#include "support/clock.h"

namespace kestrow {

class PlistValue;
using PlistData = std::vector<std::uint8_t>;
using PlistArray = std::vector<PlistValue>;
using PlistDict = std::map<std::string, PlistValue, std::less<>>;

// One property-list value with the user-defaults types kept apart (a bool is not an integer, an
// integer is not a real), so that "a value of the wrong type reads as absent" can be honoured.
class PlistValue {
public:
    using Storage = std::variant<bool, std::int64_t, double, std::string, WallTime, PlistData,
                                 PlistArray, PlistDict>;

    PlistValue() : storage_(PlistDict{}) {}
    PlistValue(bool v) : storage_(v) {}  // NOLINT: values convert implicitly, like literals
    template <typename I>
    requires(std::is_integral_v<I> && !std::is_same_v<I, bool>) PlistValue(I v)
        : storage_(static_cast<std::int64_t>(v)) {}               // NOLINT
    PlistValue(double v) : storage_(v) {}                         // NOLINT
    PlistValue(std::string v) : storage_(std::move(v)) {}         // NOLINT
    PlistValue(std::string_view v) : storage_(std::string(v)) {}  // NOLINT
    PlistValue(const char* v) : storage_(std::string(v)) {}       // NOLINT
    PlistValue(WallTime v) : storage_(v) {}                       // NOLINT
    PlistValue(PlistData v) : storage_(std::move(v)) {}           // NOLINT
    PlistValue(PlistArray v) : storage_(std::move(v)) {}          // NOLINT
    PlistValue(PlistDict v) : storage_(std::move(v)) {}           // NOLINT

    const bool* asBool() const { return std::get_if<bool>(&storage_); }
    const std::int64_t* asInteger() const { return std::get_if<std::int64_t>(&storage_); }
    const double* asReal() const { return std::get_if<double>(&storage_); }
    const std::string* asString() const { return std::get_if<std::string>(&storage_); }
    const WallTime* asDate() const { return std::get_if<WallTime>(&storage_); }
    const PlistData* asData() const { return std::get_if<PlistData>(&storage_); }
    const PlistArray* asArray() const { return std::get_if<PlistArray>(&storage_); }
    const PlistDict* asDict() const { return std::get_if<PlistDict>(&storage_); }
    // An integer or a real, as a number.
    std::optional<double> asNumber() const;
    // The value under `key` when this is a dictionary that has it.
    const PlistValue* find(std::string_view key) const;

    const Storage& storage() const { return storage_; }
    bool operator==(const PlistValue& other) const = default;

    // Parses XML or binary plists; anything unreadable gives nothing, and so does a document
    // nested deeper than any real settings file (kMaxNestingDepth), checked before a parser can
    // recurse into it. Values of kinds outside the model (UIDs) are left out.
    static std::optional<PlistValue> parse(std::string_view bytes);
    // XML keeps dates to the whole second, as the format defines them.
    std::string toXml() const;

private:
    Storage storage_;
};

// Property lists count dates from 2001-01-01 00:00:00 UTC.
inline constexpr std::int64_t kReferenceDateUnixSeconds = 978307200;
double secondsSinceReferenceDate(WallTime t);
WallTime fromSecondsSinceReferenceDate(double seconds);
// The same, for seconds read from outside: nothing for NaN or for a date further from 2001 than
// the clock's 64-bit nanoseconds reach, which would overflow the conversion.
std::optional<WallTime> checkedFromSecondsSinceReferenceDate(double seconds);

}  // namespace kestrow
