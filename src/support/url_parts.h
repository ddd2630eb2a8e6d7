#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kestrow {

// The pieces of "scheme://[user[:password]@]host[:port][/path]". Only text of that shape with a
// non-empty scheme and host parses; a port that is not a number of at most five digits fails the
// whole parse, as a URL parser does. An IPv6 literal keeps no brackets in `host`.
struct UrlParts {
    std::string scheme;  // lower-cased
    std::string user;    // as written (still percent-encoded)
    std::string host;
    std::optional<std::int64_t> port;
    std::string path;  // from the first "/" after the authority, as written; may be empty
};

std::optional<UrlParts> parseUrl(std::string_view text);

// "%41" → "A"; a malformed escape is kept as it stands.
std::string percentDecode(std::string_view text);

// Every byte percent-encoded except ASCII letters, digits and "-", ".", "_", "~".
std::string percentEncodeUnreserved(std::string_view text);

}  // namespace kestrow
