#include "shares/share_url.h"

#include <arpa/inet.h>

#include "support/ascii_case.h"
#include "support/url_parts.h"

namespace kestrow {
namespace {

void removeAll(std::string& text, const std::string& piece) {
    for (auto at = text.find(piece); at != std::string::npos; at = text.find(piece, at))
        text.erase(at, piece.size());
}

std::string schemeText(const SMBShare& share) {
    if (share.connectionProtocol == ShareProtocol::smb) return "smb";
    return asciiLowercase(rawText(share.webDAVScheme));
}

// A typed whole URL ("https://192.168.1.20:8443") with both a scheme and a host.
std::optional<UrlParts> typedUrl(const std::string& host) {
    return parseUrl(host);
}

std::string hostWithPort(const std::string& host, std::optional<std::int64_t> port) {
    return port ? host + ":" + std::to_string(*port) : host;
}

}  // namespace

std::string withoutWebSchemes(std::string host) {
    removeAll(host, "https://");
    removeAll(host, "http://");
    return host;
}

std::string trimmed(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\n\r\f\v");
    if (first == std::string::npos) return {};
    const auto last = text.find_last_not_of(" \t\n\r\f\v");
    return text.substr(first, last - first + 1);
}

std::string urlHostPart(const SMBShare& share, const std::string& chosenHost) {
    // The SMB port is never written into the URL.
    if (share.connectionProtocol == ShareProtocol::smb) return withoutWebSchemes(chosenHost);
    const std::optional<std::int64_t> recordPort =
        share.port >= 1 ? std::optional(share.port) : std::nullopt;
    if (const auto url = typedUrl(chosenHost))
        return hostWithPort(url->host, recordPort ? recordPort : url->port);
    return hostWithPort(withoutWebSchemes(chosenHost), recordPort);
}

MountUrl mountUrl(const SMBShare& share, const std::string& password,
                  const std::string& chosenHost) {
    std::string url = schemeText(share) + "://";
    if (!share.username.empty()) {
        url += percentEncodeUnreserved(share.username);
        if (!password.empty()) url += ":" + percentEncodeUnreserved(password);
        url += "@";
    }
    url += urlHostPart(share, chosenHost) + "/" + share.shareName;
    return {std::move(url), share.username.empty() || password.empty()};
}

std::optional<ProbeTarget> webDAVProbeTarget(const SMBShare& share) {
    const std::string host = trimmed(share.host);
    const std::int64_t fallback = share.webDAVScheme == WebDAVScheme::http ? 80 : 443;
    std::string probeHost;
    std::int64_t port = 0;
    const auto url = host.find("://") != std::string::npos ? typedUrl(host) : std::nullopt;
    if (url) {
        probeHost = url->host;
        port = share.port >= 1 ? share.port : url->port.value_or(fallback);
    } else {
        probeHost = withoutWebSchemes(host);
        port = share.port >= 1 ? share.port : fallback;
    }
    if (port < 1 || port > 65535) return std::nullopt;
    return ProbeTarget{probeHost, static_cast<std::uint16_t>(port)};
}

std::string displayScheme(const SMBShare& share) {
    return schemeText(share);
}

std::string displayHost(const SMBShare& share) {
    if (share.connectionProtocol == ShareProtocol::smb) return share.host;
    const std::optional<std::int64_t> recordPort =
        share.port >= 1 ? std::optional(share.port) : std::nullopt;
    if (const auto url = typedUrl(share.host))
        return hostWithPort(url->host, recordPort ? recordPort : url->port);
    return hostWithPort(share.host, recordPort);
}

std::string previewLine(const SMBShare& share, const std::string& portText) {
    std::string line = schemeText(share) + "://";
    if (!share.username.empty()) line += share.username + "@";
    line += share.host;
    if (!trimmed(portText).empty()) line += ":" + trimmed(portText);
    return line + "/" + share.shareName;
}

HostKind classifyHost(const std::string& host) {
    const std::string text = trimmed(host);
    const std::string lower = asciiLowercase(text);
    if (lower.find("._smb._tcp.local") != std::string::npos ||
        (lower.size() >= 6 && lower.ends_with(".local")))
        return HostKind::bonjour;
    unsigned char buffer[16];
    if (inet_pton(AF_INET, text.c_str(), buffer) == 1 ||
        inet_pton(AF_INET6, text.c_str(), buffer) == 1)
        return HostKind::address;
    return HostKind::dnsName;
}

std::string bonjourBaseName(const std::string& host) {
    const std::string text = trimmed(host);
    const std::string lower = asciiLowercase(text);
    if (const auto at = lower.find("._smb._tcp"); at != std::string::npos)
        return text.substr(0, at);
    if (lower.ends_with(".local")) return text.substr(0, text.size() - 6);
    return text;
}

}  // namespace kestrow
