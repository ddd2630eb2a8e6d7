#include "support/short_text.h"

namespace kestrow {

std::string shortText(std::string_view text, std::size_t limit) {
    std::string out;
    out.reserve(std::min(text.size(), limit + 4));
    bool blank = false;
    for (std::size_t i = 0; i < text.size() && out.size() <= limit; ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c == 0x1b) {
            // CSI sequences ("ESC [ ... letter") are skipped whole; any other escape, its byte.
            if (i + 1 < text.size() && text[i + 1] == '[') {
                i += 2;
                while (i < text.size() && !(text[i] >= '@' && text[i] <= '~')) ++i;
            }
            continue;
        }
        if (c == ' ' || c == '\t' || c == '\n' || c == '\r') {
            blank = !out.empty();
            continue;
        }
        if (c < 0x20 || c == 0x7f) continue;
        if (blank) out += ' ';
        blank = false;
        out += static_cast<char>(c);
    }
    if (out.size() <= limit) return out;
    std::size_t cut = limit;
    while (cut > 0 && (static_cast<unsigned char>(out[cut]) & 0xC0) == 0x80) --cut;
    out.resize(cut);
    return out + "…";
}

}  // namespace kestrow
