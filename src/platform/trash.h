#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace kestrow {

// The desktop's Trash: items moved there can be put back from the file manager.
class Trash {
public:
    virtual ~Trash() = default;
    // Moves `item` itself (a link as a link) into the Trash of its own volume; never copies and
    // never deletes. Nothing on success, else a readable reason.
    virtual std::optional<std::string> moveToTrash(const std::filesystem::path& item) = 0;
};

}  // namespace kestrow
