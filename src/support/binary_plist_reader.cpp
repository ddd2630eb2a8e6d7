#include "support/binary_plist_reader.h"

#include "support/nesting_depth.h"

#include <bit>
#include <cstring>
#include <vector>

namespace kestrow {
namespace {

constexpr std::size_t kTrailerSize = 32;
constexpr int kMaxDepth = kMaxNestingDepth;
// Shared references can make a small file expand enormously; no real settings file comes close.
constexpr std::size_t kMaxValues = 100'000;

class Reader {
public:
    explicit Reader(std::string_view bytes) : bytes_(bytes) {}

    std::optional<PlistValue> read() {
        if (bytes_.size() < 8 + kTrailerSize || bytes_.substr(0, 8) != "bplist00")
            return std::nullopt;
        const std::size_t trailer = bytes_.size() - kTrailerSize;
        offsetSize_ = byteAt(trailer + 6);
        refSize_ = byteAt(trailer + 7);
        const auto count = bigEndian(trailer + 8, 8);
        const auto top = bigEndian(trailer + 16, 8);
        const auto table = bigEndian(trailer + 24, 8);
        if (!count || !top || !table || offsetSize_ < 1 || offsetSize_ > 8 || refSize_ < 1 ||
            refSize_ > 8) {
            return std::nullopt;
        }
        objectCount_ = *count;
        tableOffset_ = *table;
        if (*top >= objectCount_ || tableOffset_ > trailer ||
            objectCount_ > (trailer - tableOffset_) / offsetSize_) {
            return std::nullopt;
        }
        auto value = object(*top, 0);
        // Too deep (a reference cycle is endlessly deep) refuses the whole document, as for XML.
        if (tooDeep_) return std::nullopt;
        return value;
    }

private:
    std::uint8_t byteAt(std::size_t at) const { return static_cast<std::uint8_t>(bytes_[at]); }

    std::optional<std::uint64_t> bigEndian(std::uint64_t at, std::size_t width) const {
        if (width == 0 || width > 8 || at > bytes_.size() || bytes_.size() - at < width)
            return std::nullopt;
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < width; ++i)
            value = (value << 8) | byteAt(static_cast<std::size_t>(at) + i);
        return value;
    }

    // The length in a marker's low nibble, or, when that is 0xF, the integer object that follows.
    std::optional<std::pair<std::uint64_t, std::uint64_t>> lengthAndStart(std::uint64_t at,
                                                                          std::uint8_t info) const {
        if (info != 0x0F) return std::pair{std::uint64_t{info}, at + 1};
        const auto marker = bigEndian(at + 1, 1);
        if (!marker || (*marker & 0xF0) != 0x10 || (*marker & 0x0F) > 3) return std::nullopt;
        const std::size_t width = std::size_t{1} << (*marker & 0x0F);
        const auto length = bigEndian(at + 2, width);
        if (!length) return std::nullopt;
        return std::pair{*length, at + 2 + width};
    }

    bool fits(std::uint64_t start, std::uint64_t length, std::uint64_t unit = 1) const {
        return start <= bytes_.size() && (unit == 0 || length <= (bytes_.size() - start) / unit);
    }

    std::optional<PlistValue> object(std::uint64_t ref, int depth) {
        if (depth > kMaxDepth) tooDeep_ = true;
        if (ref >= objectCount_ || tooDeep_ || ++values_ > kMaxValues) return std::nullopt;
        const auto at = bigEndian(tableOffset_ + ref * offsetSize_, offsetSize_);
        if (!at || *at >= bytes_.size() - kTrailerSize) return std::nullopt;
        const std::uint8_t marker = byteAt(static_cast<std::size_t>(*at));
        const std::uint8_t info = marker & 0x0F;
        switch (marker >> 4) {
            case 0x0:
                if (marker == 0x08) return PlistValue(false);
                if (marker == 0x09) return PlistValue(true);
                return std::nullopt;
            case 0x1: {
                if (info > 4) return std::nullopt;
                // 16-byte integers carry the value in their low 8 bytes.
                const std::size_t width = std::size_t{1} << info;
                const auto raw = width == 16 ? bigEndian(*at + 9, 8) : bigEndian(*at + 1, width);
                if (!raw) return std::nullopt;
                return PlistValue(static_cast<std::int64_t>(*raw));
            }
            case 0x2: {
                if (info == 2) {
                    const auto raw = bigEndian(*at + 1, 4);
                    if (!raw) return std::nullopt;
                    return PlistValue(static_cast<double>(
                        std::bit_cast<float>(static_cast<std::uint32_t>(*raw))));
                }
                if (info != 3) return std::nullopt;
                const auto raw = bigEndian(*at + 1, 8);
                if (!raw) return std::nullopt;
                return PlistValue(std::bit_cast<double>(*raw));
            }
            case 0x3: {
                const auto raw = bigEndian(*at + 1, 8);
                if (marker != 0x33 || !raw) return std::nullopt;
                const double seconds = std::bit_cast<double>(*raw);
                const auto date = checkedFromSecondsSinceReferenceDate(seconds);
                if (!date) return std::nullopt;
                return PlistValue(*date);
            }
            case 0x4:
            case 0x5: {
                const auto span = lengthAndStart(*at, info);
                if (!span || !fits(span->second, span->first)) return std::nullopt;
                const auto start = static_cast<std::size_t>(span->second);
                const auto length = static_cast<std::size_t>(span->first);
                if (marker >> 4 == 0x5) {
                    std::string text(bytes_.substr(start, length));
                    return PlistValue(std::move(text));
                }
                return PlistValue(
                    PlistData(bytes_.begin() + static_cast<std::ptrdiff_t>(start),
                              bytes_.begin() + static_cast<std::ptrdiff_t>(start + length)));
            }
            case 0x6: {
                const auto span = lengthAndStart(*at, info);
                if (!span || !fits(span->second, span->first, 2)) return std::nullopt;
                return utf16(span->second, span->first);
            }
            case 0xA:
            case 0xD: {
                const auto span = lengthAndStart(*at, info);
                const std::uint64_t refs = marker >> 4 == 0xD ? 2 : 1;
                if (!span || span->first > kMaxValues ||
                    !fits(span->second, span->first * refs, refSize_)) {
                    return std::nullopt;
                }
                return marker >> 4 == 0xA ? array(span->second, span->first, depth)
                                          : dictionary(span->second, span->first, depth);
            }
            default:
                return std::nullopt;  // UIDs, sets, and markers of later formats
        }
    }

    std::optional<PlistValue> array(std::uint64_t start, std::uint64_t count, int depth) {
        PlistArray out;
        for (std::uint64_t i = 0; i < count; ++i) {
            const auto ref = bigEndian(start + i * refSize_, refSize_);
            if (!ref) return std::nullopt;
            if (auto v = object(*ref, depth + 1)) out.push_back(std::move(*v));
            if (values_ > kMaxValues || tooDeep_) return std::nullopt;
        }
        return PlistValue(std::move(out));
    }

    std::optional<PlistValue> dictionary(std::uint64_t start, std::uint64_t count, int depth) {
        PlistDict out;
        for (std::uint64_t i = 0; i < count; ++i) {
            const auto keyRef = bigEndian(start + i * refSize_, refSize_);
            const auto valueRef = bigEndian(start + (count + i) * refSize_, refSize_);
            if (!keyRef || !valueRef) return std::nullopt;
            const auto key = object(*keyRef, depth + 1);
            auto value = object(*valueRef, depth + 1);
            if (values_ > kMaxValues || tooDeep_) return std::nullopt;
            if (key && key->asString() && value)
                out.insert_or_assign(*key->asString(), std::move(*value));
        }
        return PlistValue(std::move(out));
    }

    // UTF-16 big-endian to UTF-8; unpaired surrogates become U+FFFD.
    PlistValue utf16(std::uint64_t start, std::uint64_t units) const {
        std::string out;
        const auto unit = [&](std::uint64_t i) {
            return static_cast<std::uint32_t>(byteAt(static_cast<std::size_t>(start + 2 * i)) << 8 |
                                              byteAt(static_cast<std::size_t>(start + 2 * i + 1)));
        };
        for (std::uint64_t i = 0; i < units; ++i) {
            std::uint32_t c = unit(i);
            if (c >= 0xD800 && c <= 0xDBFF && i + 1 < units && unit(i + 1) >= 0xDC00 &&
                unit(i + 1) <= 0xDFFF) {
                c = 0x10000 + ((c - 0xD800) << 10) + (unit(i + 1) - 0xDC00);
                ++i;
            } else if (c >= 0xD800 && c <= 0xDFFF) {
                c = 0xFFFD;
            }
            if (c < 0x80) {
                out += static_cast<char>(c);
            } else if (c < 0x800) {
                out += static_cast<char>(0xC0 | (c >> 6));
                out += static_cast<char>(0x80 | (c & 0x3F));
            } else if (c < 0x10000) {
                out += static_cast<char>(0xE0 | (c >> 12));
                out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
                out += static_cast<char>(0x80 | (c & 0x3F));
            } else {
                out += static_cast<char>(0xF0 | (c >> 18));
                out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
                out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
                out += static_cast<char>(0x80 | (c & 0x3F));
            }
        }
        return PlistValue(std::move(out));
    }

    std::string_view bytes_;
    std::size_t offsetSize_ = 0;
    std::size_t refSize_ = 0;
    std::uint64_t objectCount_ = 0;
    std::uint64_t tableOffset_ = 0;
    std::size_t values_ = 0;
    bool tooDeep_ = false;
};

}  // namespace

std::optional<PlistValue> readBinaryPlist(std::string_view bytes) {
    return Reader(bytes).read();
}

}  // namespace kestrow
