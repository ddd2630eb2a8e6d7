#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace kestrow {

// Turns a byte stream that arrives in arbitrary pieces into whole lines. A line longer than the
// bound is handed on cut at the bound and the rest of it, up to its newline, is skipped: a
// program that never writes a newline cannot make us hold its output without end. A trailing
// "\r" is dropped with the "\n". A cut never splits a UTF-8 character.
class LineAssembler {
public:
    using LineHandler = std::function<void(std::string_view line)>;

    explicit LineAssembler(std::size_t lineLimit) : lineLimit_(lineLimit) {}

    // Hands every line that `bytes` completes to `handler`, in order.
    void feed(std::string_view bytes, const LineHandler& handler);
    // At the end of the stream: hands on the last line when it had no newline.
    void finish(const LineHandler& handler);

private:
    void deliverCut(const LineHandler& handler);

    std::size_t lineLimit_;
    std::string pending_;
    bool skipping_ = false;  // the rest of a line that was already handed on cut
};

// The longest prefix of `text` of at most `limit` bytes that does not end inside a UTF-8
// character.
std::string_view utf8Prefix(std::string_view text, std::size_t limit);
// The longest suffix of `text` of at most `limit` bytes that does not start inside a UTF-8
// character.
std::string_view utf8Suffix(std::string_view text, std::size_t limit);

}  // namespace kestrow
