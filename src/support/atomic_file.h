#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace kestrow {

// More than any file we read whole (settings, tool answers, /proc tables) ever holds.
inline constexpr std::size_t kReadFileLimit = 64 * 1024 * 1024;

// The whole file, or nothing when it cannot be read (with a readable reason in `error`). Only a
// regular file is read: a FIFO or a device put in a file's place would block the reader forever
// or never end, so it is opened without waiting and refused. A file longer than `limit` bytes is
// refused rather than read in part.
std::optional<std::string> readFile(const std::filesystem::path& path, std::string* error = nullptr,
                                    std::size_t limit = kReadFileLimit);

// Replaces `path` with `data` so that a reader sees the old file or the new one, never a mix,
// and a failure (full disk, no permission) leaves the old file as it was: write a temporary file
// beside it, flush it to disk, rename it over the old one. Creates missing parent folders
// (owner-only). Temporary files of this same target that a killed write left behind, and only
// those (by their exact name, owner and age), are removed on the way. On failure returns false
// and, when `error` is given, a readable reason.
bool writeFileAtomically(const std::filesystem::path& path, std::string_view data,
                         std::string* error = nullptr);

}  // namespace kestrow
