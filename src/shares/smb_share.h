#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "support/clock.h"

namespace kestrow {

// Each enumeration is stored by its raw text, and the raw texts never change: they are in every
// shares file already written.
enum class ShareProtocol { smb, webdav };
enum class WebDAVScheme { https, http };
// The raw text is also what the user reads as the share's status.
enum class MountStatus { mounted, disconnected, connecting, error };

std::string_view rawText(ShareProtocol protocol);
std::string_view rawText(WebDAVScheme scheme);
std::string_view rawText(MountStatus status);
std::optional<ShareProtocol> shareProtocolFromRaw(std::string_view raw);
std::optional<WebDAVScheme> webDAVSchemeFromRaw(std::string_view raw);

// One network share the user asked to keep connected. A value: copies are independent, and two
// records are the same share when their ids are equal. The password is kept apart, in the
// keyring, under the id.
struct SMBShare {
    std::string id;  // canonical upper-case UUID text; also the keyring account
    std::string name;
    ShareProtocol connectionProtocol = ShareProtocol::smb;
    WebDAVScheme webDAVScheme = WebDAVScheme::https;
    std::string host;       // as typed; for WebDAV possibly a whole URL
    std::int64_t port = 0;  // below 1: the protocol's default
    std::string shareName;  // SMB share, or WebDAV path below the server
    std::string username;   // may be empty, or "domain\user"
    std::string mountPoint;
    bool autoMount = true;
    std::optional<std::string> vpnServiceID;
    std::optional<std::string> vpnName;

    // Live state, never stored.
    MountStatus status = MountStatus::disconnected;
    std::optional<std::string> lastError;
    std::optional<WallTime> lastConnected;

    bool operator==(const SMBShare&) const = default;
};

// A fresh random (version 4) UUID in canonical upper-case text.
std::string newShareId();

}  // namespace kestrow
