#include "shares/smb_share.h"

#include <array>
#include <random>

#include <fmt/format.h>

namespace kestrow {

std::string_view rawText(ShareProtocol protocol) {
    return protocol == ShareProtocol::smb ? "SMB" : "WebDAV";
}

std::string_view rawText(WebDAVScheme scheme) {
    return scheme == WebDAVScheme::https ? "HTTPS" : "HTTP";
}

std::string_view rawText(MountStatus status) {
    switch (status) {
        case MountStatus::mounted:
            return "Connected";
        case MountStatus::disconnected:
            return "Disconnected";
        case MountStatus::connecting:
            return "Connecting...";
        case MountStatus::error:
            return "Error";
    }
    return "Error";
}

std::optional<ShareProtocol> shareProtocolFromRaw(std::string_view raw) {
    if (raw == "SMB") return ShareProtocol::smb;
    if (raw == "WebDAV") return ShareProtocol::webdav;
    return std::nullopt;
}

std::optional<WebDAVScheme> webDAVSchemeFromRaw(std::string_view raw) {
    if (raw == "HTTPS") return WebDAVScheme::https;
    if (raw == "HTTP") return WebDAVScheme::http;
    return std::nullopt;
}

std::string newShareId() {
    static thread_local std::mt19937_64 generator{std::random_device{}()};
    std::array<unsigned char, 16> bytes{};
    for (std::size_t i = 0; i < bytes.size(); i += 8) {
        const std::uint64_t word = generator();
        for (std::size_t j = 0; j < 8; ++j)
            bytes[i + j] = static_cast<unsigned char>(word >> (8 * j));
    }
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);  // version 4
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
        text += fmt::format("{:02X}", bytes[i]);
    }
    return text;
}

}  // namespace kestrow
