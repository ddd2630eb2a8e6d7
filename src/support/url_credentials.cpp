#include "support/url_credentials.h"

#include <algorithm>

namespace kestrow {

std::string withoutPassword(std::string_view url) {
    const std::size_t slashes = url.find("//");
    if (slashes == std::string_view::npos) return std::string(url);
    const std::size_t start = slashes + 2;
    const std::size_t end = std::min(url.find_first_of("/?#", start), url.size());
    const std::string_view authority = url.substr(start, end - start);
    const std::size_t at = authority.rfind('@');
    if (at == std::string_view::npos) return std::string(url);
    const std::string_view userInfo = authority.substr(0, at);
    const std::size_t colon = userInfo.find(':');
    if (colon == std::string_view::npos) return std::string(url);
    std::string out(url.substr(0, start));
    // A user name is kept with its "@"; with none left, nothing of the user information is.
    if (colon > 0) {
        out += userInfo.substr(0, colon);
        out += '@';
    }
    out += url.substr(start + at + 1);
    return out;
}

}  // namespace kestrow
