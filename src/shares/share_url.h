#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "shares/smb_share.h"

namespace kestrow {

// The URL a mount attempt uses, built from the record, its password and the host reachability
// chose (which may differ from the record's host: a service name, an address).
struct MountUrl {
    std::string url;
    // Without both a user name and a password the server may ask for credentials, so the attempt
    // gets the long time limits.
    bool interactive = true;
};

// Credentials are percent-encoded; with no user name no password is sent even when one is
// stored. The share name goes in as stored.
MountUrl mountUrl(const SMBShare& share, const std::string& password,
                  const std::string& chosenHost);

// The host (and for WebDAV the port) as written into the mount URL.
std::string urlHostPart(const SMBShare& share, const std::string& chosenHost);

struct ProbeTarget {
    std::string host;
    std::uint16_t port = 0;
};
// Where a WebDAV share's server is asked to answer. None when the port cannot be represented
// (65536 or more): such a share is treated as unreachable.
std::optional<ProbeTarget> webDAVProbeTarget(const SMBShare& share);

std::string displayScheme(const SMBShare& share);
std::string displayHost(const SMBShare& share);
// The editor's preview line; `portText` is the port field as typed. Never shows a password.
std::string previewLine(const SMBShare& share, const std::string& portText);

enum class HostKind { bonjour, address, dnsName };
HostKind classifyHost(const std::string& host);
// "Office NAS._smb._tcp.local" → "Office NAS"; "nas.local" → "nas".
std::string bonjourBaseName(const std::string& host);

// The host with every "https://" and then every "http://" removed.
std::string withoutWebSchemes(std::string host);
// White space trimmed from both ends.
std::string trimmed(const std::string& text);

}  // namespace kestrow
