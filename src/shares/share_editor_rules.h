#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "shares/smb_share.h"
#include "shares/vpn_service.h"

namespace kestrow {

// The share editor's own texts, exactly as the product has them; they are shown through the
// platform's wording, which turns the keychain sentence into the Linux keyring's.
namespace ShareEditorText {
inline constexpr const char* kCredentialsHeading = "Credentials (optional)";
inline constexpr const char* kPasswordNote =
    "The password is securely stored in the macOS Keychain.";
inline constexpr const char* kHostPlaceholder = "192.168.1.100 or server.local";
inline constexpr const char* kNamePlaceholder = "My Network Drive";
inline constexpr const char* kUserPlaceholder = "domain\\user or user";
inline constexpr const char* kAutoMount = "Automatically connect and reconnect on disconnect";
inline constexpr const char* kVpnHelp =
    "Used only to explain a stalled connection and retry when it connects.";
inline constexpr const char* kNotConfigured = "(not configured)";
inline constexpr const char* kEmptyList =
    "Add an SMB or WebDAV share to keep it mounted automatically.";
inline constexpr const char* kSectionHelp =
    "Network shares you add are mounted automatically and reconnected after sleep or network "
    "changes.";
}  // namespace ShareEditorText

// The editor's fields as typed. The port stays text until the record is built, so what the user
// typed is never silently rewritten while they type it.
struct ShareForm {
    // The record being edited; none for a new share.
    std::optional<std::string> id;
    std::string name;
    ShareProtocol protocol = ShareProtocol::smb;
    WebDAVScheme scheme = WebDAVScheme::https;
    std::string host;
    std::string portText;
    std::string shareName;
    std::string username;
    bool autoMount = true;
    std::optional<std::string> vpnServiceID;
    std::optional<std::string> vpnName;
    // Kept from the record: it is where the share is expected, and editing does not move it.
    std::string mountPoint;

    static ShareForm forShare(const SMBShare& share);
};

// The port field: empty (after trimming) is 0, the protocol's default; otherwise a whole decimal
// number with an optional leading sign, in 1...65535. None when the field is not valid.
std::optional<std::int64_t> portFromField(const std::string& text);

enum class ShareFormProblem { noHost, noShareName, badPort };
// The first reason Save is not possible; none when it is.
std::optional<ShareFormProblem> shareFormProblem(const ShareForm& form);
// The reason as a sentence, for the command line that refuses the same input.
std::string problemSentence(ShareFormProblem problem);
inline bool canSave(const ShareForm& form) {
    return !shareFormProblem(form);
}

// The record Save hands to the share manager: the edited record keeps its id, a new one gets a
// fresh id. Host, share name and user are trimmed; a blank name becomes the share name. Only
// meaningful when `canSave(form)`.
SMBShare shareRecord(const ShareForm& form);
// What the form would connect to, as the editor previews it; never shows a password.
std::string formPreview(const ShareForm& form);

// One entry of the editor's VPN picker.
struct VPNChoice {
    std::string id;
    // The service's name as the record keeps it (`vpnName`).
    std::string name;
    // What the picker shows: the name, and "(not configured)" for a service the system lost.
    std::string label;
};
// The system's VPN services, then the record's linked one when the system no longer has it. When
// the services cannot be read at all, the link still stays choosable, so a save never drops it.
std::vector<VPNChoice> vpnChoices(const std::optional<std::vector<VPNService>>& services,
                                  const ShareForm& form);

}  // namespace kestrow
