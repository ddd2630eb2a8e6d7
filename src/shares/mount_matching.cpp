#include "shares/mount_matching.h"

#include <algorithm>

#include "shares/share_url.h"
#include "support/ascii_case.h"
#include "support/url_parts.h"

namespace kestrow::MountMatching {
namespace {

std::string trimmedOf(const std::string& text, const char* characters) {
    const auto first = text.find_first_not_of(characters);
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(characters) - first + 1);
}

std::string comparablePath(const std::string& path) {
    return asciiLowercase(trimmedOf(percentDecode(path), "/ \t\n\r"));
}

}  // namespace

std::optional<SmbSource> smbSource(const std::string& from) {
    if (!from.starts_with("//")) return std::nullopt;
    std::string rest = from.substr(2);
    const auto slash = rest.find('/');
    const auto at = rest.rfind('@', slash == std::string::npos ? std::string::npos : slash);
    if (at != std::string::npos && (slash == std::string::npos || at < slash))
        rest = rest.substr(at + 1);

    SmbSource source;
    std::size_t afterHost = 0;
    if (!rest.empty() && rest.front() == '[') {
        const auto close = rest.find(']');
        if (close == std::string::npos) return std::nullopt;
        source.host = rest.substr(1, close - 1);
        afterHost = close + 1;
    } else {
        afterHost = std::min(rest.find_first_of(":/"), rest.size());
        source.host = rest.substr(0, afterHost);
    }
    const auto shareStart = rest.find('/', afterHost);
    if (source.host.empty() || shareStart == std::string::npos) return std::nullopt;
    source.share = rest.substr(shareStart + 1, rest.find('/', shareStart + 1) - shareStart - 1);
    if (source.share.empty()) return std::nullopt;
    return source;
}

std::string sourceUser(const MountEntry& entry) {
    if (!entry.from.starts_with("//")) return {};
    const std::string rest = entry.from.substr(2);
    const auto slash = rest.find('/');
    const auto at = rest.rfind('@', slash == std::string::npos ? std::string::npos : slash);
    if (at == std::string::npos || (slash != std::string::npos && at > slash)) return {};
    return percentDecode(rest.substr(0, at));
}

std::string shareHost(const SMBShare& share) {
    if (share.connectionProtocol == ShareProtocol::smb) return share.host;
    if (share.host.find("://") != std::string::npos)
        if (const auto url = parseUrl(share.host)) return url->host;
    return withoutWebSchemes(share.host);
}

std::string normalizeHost(const std::string& host) {
    std::string normalized = asciiLowercase(trimmed(host));
    if (const auto at = normalized.find("._smb._tcp"); at != std::string::npos)
        normalized.resize(at);
    if (normalized.ends_with(".local")) normalized.resize(normalized.size() - 6);
    return normalized;
}

bool isSmbType(const std::string& fsType) {
    return fsType == "smbfs" || fsType == "cifs" || fsType == "smb3";
}

bool isWebDAVType(const std::string& fsType) {
    return fsType == "webdav" || fsType == "davfs";
}

bool matches(const SMBShare& share, const MountEntry& entry) {
    const std::string wantedHost = normalizeHost(shareHost(share));
    if (share.connectionProtocol == ShareProtocol::smb) {
        if (!isSmbType(entry.fsType)) return false;
        const auto source = smbSource(entry.from);
        return source && normalizeHost(source->host) == wantedHost &&
               comparablePath(source->share) == comparablePath(share.shareName);
    }
    if (!isWebDAVType(entry.fsType)) return false;
    const auto url = parseUrl(entry.from);
    if (!url || (url->scheme != "http" && url->scheme != "https" && url->scheme != "webdav"))
        return false;
    return normalizeHost(url->host) == wantedHost &&
           comparablePath(url->path) == comparablePath(share.shareName);
}

bool isMounted(const SMBShare& share, const std::vector<MountEntry>& entries) {
    return std::any_of(entries.begin(), entries.end(),
                       [&](const MountEntry& entry) { return matches(share, entry); });
}

std::vector<std::string> mountedPaths(const SMBShare& share,
                                      const std::vector<MountEntry>& entries) {
    std::vector<std::string> paths;
    for (const MountEntry& entry : entries)
        if (matches(share, entry)) paths.push_back(entry.mountedOn);
    return paths;
}

std::optional<std::string> mountedPath(const SMBShare& share,
                                       const std::vector<MountEntry>& entries) {
    for (const MountEntry& entry : entries)
        if (matches(share, entry)) return entry.mountedOn;
    return std::nullopt;
}

}  // namespace kestrow::MountMatching
