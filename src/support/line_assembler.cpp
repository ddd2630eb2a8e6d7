#include "support/line_assembler.h"

#include <algorithm>

namespace kestrow {
namespace {

bool isContinuationByte(char c) {
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

std::string_view withoutCarriageReturn(std::string_view line) {
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    return line;
}

}  // namespace

std::string_view utf8Prefix(std::string_view text, std::size_t limit) {
    if (text.size() <= limit) return text;
    // text[limit] is the first byte left out. When it continues a character, that character is
    // left out whole: back up to its lead byte (at most three bytes back).
    std::size_t end = limit;
    for (int i = 0; i < 3 && end > 0 && isContinuationByte(text[end]); ++i) --end;
    // Stray continuation bytes are not UTF-8 at all: cut where the limit says.
    if (isContinuationByte(text[end])) end = limit;
    return text.substr(0, end);
}

std::string_view utf8Suffix(std::string_view text, std::size_t limit) {
    if (text.size() <= limit) return text;
    std::size_t start = text.size() - limit;
    // At most three continuation bytes follow a lead byte.
    for (int i = 0; i < 3 && start < text.size() && isContinuationByte(text[start]); ++i) ++start;
    return text.substr(start);
}

void LineAssembler::feed(std::string_view bytes, const LineHandler& handler) {
    while (!bytes.empty()) {
        const auto newline = bytes.find('\n');
        const std::string_view piece =
            newline == std::string_view::npos ? bytes : bytes.substr(0, newline);
        if (skipping_) {
            if (newline != std::string_view::npos) skipping_ = false;
        } else {
            const std::size_t room = lineLimit_ - std::min(lineLimit_, pending_.size());
            if (piece.size() > room) {
                // The line outgrows the bound: what fits goes on now, the rest is skipped. One
                // byte more is looked at, so that the cut can see whether it splits a character.
                pending_.append(piece.substr(0, room + 1));
                deliverCut(handler);
                skipping_ = newline == std::string_view::npos;
            } else {
                pending_.append(piece);
                if (newline == std::string_view::npos) break;
                const std::string line = std::move(pending_);
                pending_.clear();
                handler(withoutCarriageReturn(line));
            }
        }
        if (newline == std::string_view::npos) break;
        bytes.remove_prefix(newline + 1);
    }
}

void LineAssembler::finish(const LineHandler& handler) {
    skipping_ = false;
    if (pending_.empty()) return;
    const std::string line = std::move(pending_);
    pending_.clear();
    handler(withoutCarriageReturn(line));
}

void LineAssembler::deliverCut(const LineHandler& handler) {
    const std::string whole = std::move(pending_);
    pending_.clear();
    handler(utf8Prefix(whole, lineLimit_));
}

}  // namespace kestrow
