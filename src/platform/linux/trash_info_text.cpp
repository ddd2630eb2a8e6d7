#include "platform/linux/trash_info_text.h"

#include <array>

namespace kestrow {

std::string TrashInfoText::percentEncoded(const std::string& path) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(path.size());
    for (const char c : path) {
        const auto byte = static_cast<unsigned char>(c);
        const bool plain = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
                           (byte >= '0' && byte <= '9') || byte == '-' || byte == '_' ||
                           byte == '.' || byte == '~' || byte == '/';
        if (plain) {
            out.push_back(c);
        } else {
            out.push_back('%');
            out.push_back(kHex[byte >> 4]);
            out.push_back(kHex[byte & 0x0F]);
        }
    }
    return out;
}

std::string TrashInfoText::deletionDate(std::time_t when) {
    std::tm local{};
    ::localtime_r(&when, &local);
    std::array<char, 32> buffer{};
    const std::size_t length =
        std::strftime(buffer.data(), buffer.size(), "%Y-%m-%dT%H:%M:%S", &local);
    return std::string(buffer.data(), length);
}

std::string TrashInfoText::text(const std::string& path, std::time_t when) {
    return "[Trash Info]\nPath=" + percentEncoded(path) + "\nDeletionDate=" + deletionDate(when) +
           "\n";
}

}  // namespace kestrow
