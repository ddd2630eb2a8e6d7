#pragma once

#include <ctime>
#include <string>

namespace kestrow {

// The restorable entry of a Trash item: "[Trash Info]", the original Path percent-encoded (every
// byte but letters, digits, "-_.~" and "/"), and the DeletionDate in local time.
struct TrashInfoText {
    static std::string percentEncoded(const std::string& path);
    static std::string deletionDate(std::time_t when);
    static std::string text(const std::string& path, std::time_t when);
};

}  // namespace kestrow
