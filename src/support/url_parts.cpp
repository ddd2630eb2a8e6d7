#include "support/url_parts.h"

#include <cctype>

#include "support/ascii_case.h"

namespace kestrow {
namespace {

bool isSchemeChar(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '+' || c == '-' || c == '.';
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace

std::optional<UrlParts> parseUrl(std::string_view text) {
    const auto separator = text.find("://");
    if (separator == std::string_view::npos || separator == 0) return std::nullopt;
    const std::string_view scheme = text.substr(0, separator);
    if (std::isalpha(static_cast<unsigned char>(scheme.front())) == 0) return std::nullopt;
    for (char c : scheme)
        if (!isSchemeChar(c)) return std::nullopt;

    std::string_view rest = text.substr(separator + 3);
    const auto authorityEnd = rest.find_first_of("/?#");
    std::string_view authority = rest.substr(0, authorityEnd);
    UrlParts parts;
    parts.scheme = asciiLowercase(scheme);
    if (authorityEnd != std::string_view::npos) parts.path = std::string(rest.substr(authorityEnd));

    if (const auto at = authority.rfind('@'); at != std::string_view::npos) {
        const std::string_view userInfo = authority.substr(0, at);
        parts.user = std::string(userInfo.substr(0, userInfo.find(':')));
        authority = authority.substr(at + 1);
    }
    std::string_view portText;
    if (!authority.empty() && authority.front() == '[') {
        const auto close = authority.find(']');
        if (close == std::string_view::npos) return std::nullopt;
        parts.host = std::string(authority.substr(1, close - 1));
        const std::string_view after = authority.substr(close + 1);
        if (!after.empty()) {
            if (after.front() != ':') return std::nullopt;
            portText = after.substr(1);
        }
    } else {
        const auto colon = authority.find(':');
        parts.host = std::string(authority.substr(0, colon));
        if (colon != std::string_view::npos) portText = authority.substr(colon + 1);
    }
    if (parts.host.empty()) return std::nullopt;
    if (!portText.empty()) {
        if (portText.size() > 5) return std::nullopt;
        std::int64_t port = 0;
        for (char c : portText) {
            if (c < '0' || c > '9') return std::nullopt;
            port = port * 10 + (c - '0');
        }
        parts.port = port;
    }
    return parts;
}

std::string percentDecode(std::string_view text) {
    std::string decoded;
    decoded.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size()) {
            const int high = hexValue(text[i + 1]);
            const int low = hexValue(text[i + 2]);
            if (high >= 0 && low >= 0) {
                decoded += static_cast<char>(high * 16 + low);
                i += 2;
                continue;
            }
        }
        decoded += text[i];
    }
    return decoded;
}

std::string percentEncodeUnreserved(std::string_view text) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string encoded;
    encoded.reserve(text.size());
    for (char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (std::isalnum(byte) != 0 && byte < 0x80) {
            encoded += c;
        } else if (c == '-' || c == '.' || c == '_' || c == '~') {
            encoded += c;
        } else {
            encoded += '%';
            encoded += kHex[byte >> 4];
            encoded += kHex[byte & 0x0F];
        }
    }
    return encoded;
}

}  // namespace kestrow
