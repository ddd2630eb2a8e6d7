#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>

namespace kestrow {

// The bytes that deleting `file` would free now. On Linux the file's extent map says which
// extents are shared with a reflink clone (or a snapshot); only the others count. A file system
// without extent maps gives the allocated size. Absent when the file cannot be opened or looked
// at. Kept in the core behind this one function: the extent-map ioctl is Linux's, and elsewhere
// the allocated size is all there is to say.
std::optional<std::int64_t> measurePrivateSize(const std::filesystem::path& file);

}  // namespace kestrow
