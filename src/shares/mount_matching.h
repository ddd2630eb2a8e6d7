#pragma once

#include <optional>
#include <string>
#include <vector>

#include "shares/mount_entry.h"
#include "shares/smb_share.h"

namespace kestrow {

// Which rows of the mount table are a configured share. Mounts made by hand (kernel cifs,
// davfs2) match too, so that they are seen, and then left alone.
namespace MountMatching {

struct SmbSource {
    std::string host;
    std::string share;
};
// "//user@host:port/share/…" → host and share; none when a part is missing.
std::optional<SmbSource> smbSource(const std::string& from);
// The user of an SMB from-name, percent-decoded; "" when there is none.
std::string sourceUser(const MountEntry& entry);
// The host a share is matched on.
std::string shareHost(const SMBShare& share);
// Trimmed, lower-cased, a service name cut to its instance, ".local" removed.
std::string normalizeHost(const std::string& host);

bool isSmbType(const std::string& fsType);
bool isWebDAVType(const std::string& fsType);
bool matches(const SMBShare& share, const MountEntry& entry);

bool isMounted(const SMBShare& share, const std::vector<MountEntry>& entries);
std::vector<std::string> mountedPaths(const SMBShare& share,
                                      const std::vector<MountEntry>& entries);
std::optional<std::string> mountedPath(const SMBShare& share,
                                       const std::vector<MountEntry>& entries);

}  // namespace MountMatching
}  // namespace kestrow
