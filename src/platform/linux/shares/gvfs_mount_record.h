#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "shares/mount_entry.h"
#include "support/mount_info_field.h"

namespace kestrow {

// One mount as the desktop's mount service (gvfsd's mount tracker) lists it, reduced to what the
// mount table needs. Texts are as the service sent them; nothing in them is trusted.
struct GvfsMountRecord {
    std::string dbusId;
    std::string objectPath;
    std::string stableName;
    bool userVisible = true;
    std::string fuseMountpoint;  // empty when gvfsd-fuse is not running
    std::string specPrefix;      // the mount spec's path prefix ("/" or a WebDAV folder)
    std::vector<std::pair<std::string, std::string>> specItems;  // "type", "server", "share"...
};

// The mount-table row of a gvfs mount: "smb-share" → "smbfs" with "//[user@]server[:port]/share",
// "dav"/"davs" → "webdav" with "http(s)://[user@]host[:port]/prefix"; any other kind keeps its
// own name after "gvfs." so that it is seen but never taken for a share. Its path is the FUSE
// path, or where gvfsd-fuse would show it. None when the record names no kind.
std::optional<MountEntry> gvfsMountEntry(const GvfsMountRecord& record,
                                         const std::string& volumesRoot);

// The kernel's rows: cifs/smb3 as they are, a FUSE mount of an http(s) URL as "davfs", the rest
// under the kernel's type name; gvfsd-fuse's own mount (the gvfs folder itself) is left out, its
// shares come from the mount service.
std::vector<MountEntry> kernelMountEntries(std::string_view mountInfo);

// An identity that changes with every mount instance the service registers.
std::int64_t gvfsMountIdentity(std::string_view dbusId, std::string_view objectPath);

// The kernel's boot id ("xxxxxxxx-xxxx-...") folded to a positive 64-bit number; 0 when the text
// is not one.
std::int64_t bootIdentityFromId(std::string_view bootId);

}  // namespace kestrow
