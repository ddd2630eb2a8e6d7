#pragma once

#include <cstdint>
#include <string>

namespace kestrow {

// One row of the mount table. On Linux it joins two sources: the desktop's own network mounts
// (GIO/gvfs: "smbfs" for an SMB share, "webdav" for a WebDAV folder) and the kernel's table
// (cifs, davfs2 and FUSE mounts made by hand or by others, under their kernel type names). Only
// the first kind can ever be Kestrow's own.
struct MountEntry {
    std::string fsType;
    // SMB: "//user@host/share"; WebDAV: the server URL with its path.
    std::string from;
    std::uint32_t flags = 0;
    std::string mountedOn;
    // A stable identity of this mount instance: the same share mounted again gets another one.
    std::int64_t fsid = 0;

    bool operator==(const MountEntry&) const = default;
};

// Mounts that are not the user's data (the desktop hides them); such a mount is never owned.
inline constexpr std::uint32_t kDontBrowseFlag = 0x00100000;

}  // namespace kestrow
