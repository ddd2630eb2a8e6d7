#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace kestrow {

// The whole file, or nothing when it cannot be read (with a readable reason in `error`).
std::optional<std::string> readFile(const std::filesystem::path& path,
                                    std::string* error = nullptr);

// Replaces `path` with `data` so that a reader sees the old file or the new one, never a mix,
// and a failure (full disk, no permission) leaves the old file as it was: write a temporary file
// beside it, flush it to disk, rename it over the old one. Creates missing parent folders
// (owner-only). On failure returns false and, when `error` is given, a readable reason.
bool writeFileAtomically(const std::filesystem::path& path, std::string_view data,
                         std::string* error = nullptr);

}  // namespace kestrow
