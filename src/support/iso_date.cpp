#include "support/iso_date.h"

#include <fmt/format.h>

#include <cctype>
#include <charconv>
#include <cstdint>

namespace kestrow {
namespace {

using namespace std::chrono;

class Cursor {
public:
    explicit Cursor(std::string_view text) : text_(text) {}
    bool digits(std::size_t count, int& out) {
        if (text_.size() - pos_ < count) return false;
        for (std::size_t i = 0; i < count; ++i) {
            if (!std::isdigit(static_cast<unsigned char>(text_[pos_ + i]))) return false;
        }
        std::from_chars(text_.data() + pos_, text_.data() + pos_ + count, out);
        pos_ += count;
        return true;
    }
    bool literal(char c) {
        if (pos_ < text_.size() && text_[pos_] == c) {
            ++pos_;
            return true;
        }
        return false;
    }
    bool atEnd() const { return pos_ == text_.size(); }
    std::string_view rest() const { return text_.substr(pos_); }
    void skip(std::size_t n) { pos_ += n; }

private:
    std::string_view text_;
    std::size_t pos_ = 0;
};

}  // namespace

std::string formatIsoDate(WallTime time) {
    const auto secondsSinceEpoch = floor<seconds>(time);
    const auto day = floor<days>(secondsSinceEpoch);
    const year_month_day ymd{day};
    const hh_mm_ss<seconds> hms{secondsSinceEpoch - day};
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z", static_cast<int>(ymd.year()),
                       static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()),
                       hms.hours().count(), hms.minutes().count(), hms.seconds().count());
}

std::optional<WallTime> parseIsoDate(std::string_view text) {
    Cursor c(text);
    int y = 0, mo = 0, d = 0;
    if (!c.digits(4, y) || !c.literal('-') || !c.digits(2, mo) || !c.literal('-') ||
        !c.digits(2, d)) {
        return std::nullopt;
    }
    const year_month_day ymd{year{y}, month{static_cast<unsigned>(mo)},
                             day{static_cast<unsigned>(d)}};
    // The clock counts nanoseconds in 64 bits: years far outside these would overflow it.
    if (!ymd.ok() || y < 1900 || y > 2200) return std::nullopt;
    WallTime result = sys_days{ymd};
    if (c.atEnd()) return result;

    int h = 0, mi = 0, s = 0;
    if (!c.literal('T') || !c.digits(2, h) || !c.literal(':') || !c.digits(2, mi) ||
        !c.literal(':') || !c.digits(2, s) || h > 23 || mi > 59 || s > 60) {
        return std::nullopt;
    }
    result += hours{h} + minutes{mi} + seconds{s};
    if (c.literal('.')) {
        const std::string_view rest = c.rest();
        std::size_t n = 0;
        while (n < rest.size() && std::isdigit(static_cast<unsigned char>(rest[n]))) ++n;
        if (n == 0) return std::nullopt;
        // Whole nanoseconds, counted exactly (the clock's own unit); digits beyond them are
        // below what the clock can hold and are dropped.
        std::int64_t nanos = 0;
        for (std::size_t i = 0; i < 9; ++i) nanos = nanos * 10 + (i < n ? rest[i] - '0' : 0);
        result += duration_cast<WallTime::duration>(nanoseconds{nanos});
        c.skip(n);
    }
    if (c.literal('Z')) return c.atEnd() ? std::optional(result) : std::nullopt;
    const bool plus = c.literal('+');
    if (!plus && !c.literal('-')) return std::nullopt;
    int oh = 0, om = 0;
    if (!c.digits(2, oh) || !c.literal(':') || !c.digits(2, om) || !c.atEnd() || oh > 23 ||
        om > 59) {
        return std::nullopt;
    }
    const auto offset = hours{oh} + minutes{om};
    return plus ? result - offset : result + offset;
}

}  // namespace kestrow
