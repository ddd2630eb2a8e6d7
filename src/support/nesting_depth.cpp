#include "support/nesting_depth.h"

namespace kestrow {
namespace {

// Where `close` next occurs from `from`, or the end of the text when it never does: an
// unterminated comment or tag runs to the end.
std::size_t after(std::string_view text, std::size_t from, std::string_view close) {
    const std::size_t found = text.find(close, from);
    return found == std::string_view::npos ? text.size() : found + close.size();
}

bool startsName(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c == ':';
}

}  // namespace

// The scan must never see less depth than a parser would. Where a parser could read the text
// another way (markup inside a comment, CDATA, a declaration or an attribute value, which a
// lenient parser might take for elements), every "<name" still counts as a level and no "</"
// takes one away; outside them, an end tag closes a level and "<name/>" opens none, but only
// when it holds no quotes, so an attribute value cannot pass for the tag's end.
bool xmlNestingWithin(std::string_view text, int limit) {
    int depth = 0;
    const auto countOpensIn = [&](std::size_t from, std::size_t to) {
        for (std::size_t i = text.find('<', from); i < to; i = text.find('<', i + 1)) {
            if (i + 1 < text.size() && startsName(text[i + 1]) && ++depth > limit) return false;
        }
        return true;
    };
    std::size_t at = 0;
    while ((at = text.find('<', at)) != std::string_view::npos) {
        const std::string_view rest = text.substr(at);
        std::size_t end = 0;
        if (rest.starts_with("<!--")) {
            end = after(text, at + 4, "-->");
        } else if (rest.starts_with("<![CDATA[")) {
            end = after(text, at + 9, "]]>");
        } else if (rest.starts_with("<?")) {
            end = after(text, at + 2, "?>");
        } else if (rest.starts_with("<!")) {
            end = after(text, at + 2, ">");
        } else if (rest.starts_with("</")) {
            end = after(text, at + 2, ">");
            if (depth > 0) --depth;
            if (!countOpensIn(at + 2, end)) return false;
            at = end;
            continue;
        } else {
            end = after(text, at + 1, ">");
            const std::string_view tag = text.substr(at, end - at);
            const bool selfClosing =
                tag.ends_with("/>") && tag.find_first_of("\"'") == std::string_view::npos;
            if (!selfClosing && ++depth > limit) return false;
            if (!countOpensIn(at + 1, end)) return false;
            at = end;
            continue;
        }
        if (!countOpensIn(at + 2, end)) return false;
        at = end;
    }
    return true;
}

bool jsonNestingWithin(std::string_view text, int limit) {
    int depth = 0;
    bool inString = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            if (c == '\\') {
                ++i;  // whatever is escaped, it neither ends the string nor nests
            } else if (c == '"') {
                inString = false;
            }
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > limit) return false;
        } else if ((c == ']' || c == '}') && depth > 0) {
            --depth;
        }
    }
    return true;
}

}  // namespace kestrow
