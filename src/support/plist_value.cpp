#include "support/plist_value.h"

#include "support/binary_plist_reader.h"
#include "support/nesting_depth.h"

#include <plist/plist.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <memory>

namespace kestrow {
namespace {

// A value nested deeper than this refuses the whole document rather than a part of it: a
// settings file read with pieces missing would be believed.
constexpr int kMaxDepth = kMaxNestingDepth;
// In XML the <plist> element wraps the top value, and a dictionary's keys sit one level below it.
constexpr int kMaxXmlElementDepth = kMaxDepth + 3;

struct PlistFree {
    void operator()(void* node) const { plist_free(static_cast<plist_t>(node)); }
};
using PlistHandle = std::unique_ptr<void, PlistFree>;

std::optional<PlistValue> fromNode(plist_t node, int depth, bool& tooDeep) {
    if (depth > kMaxDepth) tooDeep = true;
    if (node == nullptr || tooDeep) return std::nullopt;
    switch (plist_get_node_type(node)) {
        case PLIST_BOOLEAN: {
            std::uint8_t v = 0;
            plist_get_bool_val(node, &v);
            return PlistValue(v != 0);
        }
        case PLIST_UINT: {
            std::uint64_t v = 0;
            plist_get_uint_val(node, &v);
            return PlistValue(
                static_cast<std::int64_t>(v));  // libplist keeps negatives in two's complement
        }
        case PLIST_REAL: {
            double v = 0;
            plist_get_real_val(node, &v);
            return PlistValue(v);
        }
        case PLIST_STRING: {
            std::uint64_t length = 0;
            const char* text = plist_get_string_ptr(node, &length);
            if (text == nullptr) return PlistValue(std::string());
            return PlistValue(std::string(text, static_cast<std::size_t>(length)));
        }
        case PLIST_DATE: {
            std::int32_t sec = 0;
            std::int32_t usec = 0;
            plist_get_date_val(node, &sec, &usec);
            return PlistValue(fromSecondsSinceReferenceDate(sec + usec / 1e6));
        }
        case PLIST_DATA: {
            std::uint64_t length = 0;
            const char* bytes = plist_get_data_ptr(node, &length);
            PlistData data;
            if (bytes != nullptr) data.assign(bytes, bytes + length);
            return PlistValue(std::move(data));
        }
        case PLIST_ARRAY: {
            PlistArray array;
            const std::uint32_t count = plist_array_get_size(node);
            for (std::uint32_t i = 0; i < count; ++i) {
                if (auto v = fromNode(plist_array_get_item(node, i), depth + 1, tooDeep))
                    array.push_back(std::move(*v));
            }
            return PlistValue(std::move(array));
        }
        case PLIST_DICT: {
            PlistDict dict;
            plist_dict_iter it = nullptr;
            plist_dict_new_iter(node, &it);
            for (;;) {
                char* key = nullptr;
                plist_t item = nullptr;
                plist_dict_next_item(node, it, &key, &item);
                const std::unique_ptr<char, decltype(&std::free)> keyOwner(key, &std::free);
                if (item == nullptr) break;
                if (auto v = fromNode(item, depth + 1, tooDeep); v && key != nullptr)
                    dict.insert_or_assign(key, std::move(*v));
            }
            std::free(it);
            return PlistValue(std::move(dict));
        }
        default:
            return std::nullopt;
    }
}

plist_t toNode(const PlistValue& value) {
    struct Visitor {
        plist_t operator()(bool v) const { return plist_new_bool(v ? 1 : 0); }
        plist_t operator()(std::int64_t v) const {
            return plist_new_uint(static_cast<std::uint64_t>(v));
        }
        plist_t operator()(double v) const { return plist_new_real(v); }
        plist_t operator()(const std::string& v) const { return plist_new_string(v.c_str()); }
        plist_t operator()(WallTime v) const {
            double seconds = secondsSinceReferenceDate(v);
            constexpr double lo = std::numeric_limits<std::int32_t>::min();
            constexpr double hi = std::numeric_limits<std::int32_t>::max();
            seconds = std::clamp(seconds, lo, hi);
            const double whole = std::floor(seconds);
            const auto usec = static_cast<std::int32_t>(std::lround((seconds - whole) * 1e6));
            return plist_new_date(static_cast<std::int32_t>(whole), std::min(usec, 999999));
        }
        plist_t operator()(const PlistData& v) const {
            return plist_new_data(reinterpret_cast<const char*>(v.data()), v.size());
        }
        plist_t operator()(const PlistArray& v) const {
            plist_t node = plist_new_array();
            for (const auto& item : v) plist_array_append_item(node, toNode(item));
            return node;
        }
        plist_t operator()(const PlistDict& v) const {
            plist_t node = plist_new_dict();
            for (const auto& [key, item] : v) plist_dict_set_item(node, key.c_str(), toNode(item));
            return node;
        }
    };
    return std::visit(Visitor{}, value.storage());
}

}  // namespace

double secondsSinceReferenceDate(WallTime t) {
    return std::chrono::duration<double>(t.time_since_epoch()).count() -
           static_cast<double>(kReferenceDateUnixSeconds);
}

std::optional<WallTime> checkedFromSecondsSinceReferenceDate(double seconds) {
    if (!(seconds > -3e9 && seconds < 5e9)) return std::nullopt;
    return fromSecondsSinceReferenceDate(seconds);
}

WallTime fromSecondsSinceReferenceDate(double seconds) {
    return addSeconds(WallTime{std::chrono::seconds{kReferenceDateUnixSeconds}}, seconds);
}

std::optional<double> PlistValue::asNumber() const {
    if (const auto* i = asInteger()) return static_cast<double>(*i);
    if (const auto* r = asReal()) return *r;
    return std::nullopt;
}

const PlistValue* PlistValue::find(std::string_view key) const {
    const auto* dict = asDict();
    if (dict == nullptr) return nullptr;
    const auto it = dict->find(key);
    return it == dict->end() ? nullptr : &it->second;
}

std::optional<PlistValue> PlistValue::parse(std::string_view bytes) {
    if (bytes.empty() || bytes.size() > std::numeric_limits<std::uint32_t>::max())
        return std::nullopt;
    if (bytes.starts_with("bplist")) return readBinaryPlist(bytes);
    // libplist's XML reader recurses once per element, so depth is checked before it runs.
    if (!xmlNestingWithin(bytes, kMaxXmlElementDepth)) return std::nullopt;
    plist_t root = nullptr;
    plist_from_xml(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &root);
    PlistHandle handle(root);
    bool tooDeep = false;
    auto value = fromNode(root, 0, tooDeep);
    if (tooDeep) return std::nullopt;
    return value;
}

std::string PlistValue::toXml() const {
    PlistHandle node(toNode(*this));
    char* xml = nullptr;
    std::uint32_t length = 0;
    plist_to_xml(static_cast<plist_t>(node.get()), &xml, &length);
    std::string out = xml != nullptr ? std::string(xml, length) : std::string();
    plist_to_xml_free(xml);
    return out;
}

}  // namespace kestrow
