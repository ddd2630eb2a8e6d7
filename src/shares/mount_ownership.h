#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "shares/mount_entry.h"
#include "shares/mount_ledger.h"
#include "shares/smb_share.h"
#include "support/wording.h"

namespace kestrow {

// Whether Kestrow may unmount a mount: only one it made itself in this boot, recorded in its
// ledger. Everything here is a pure function of the table, the ledger and the boot identity.
namespace MountOwnership {

// Name → its addresses; none when it does not resolve.
using Resolve = std::function<std::optional<std::set<std::string>>(const std::string& host)>;

// Only the desktop's own network mounts can be Kestrow's: "smbfs" and "webdav".
bool ownableType(const std::string& fsType);
// A direct, non-hidden child of the volumes root ("…/gvfs/smb-share:…", never "…/gvfs/.x" or
// "…/gvfs/a/b").
bool isUserVolumePath(const std::string& path, const std::string& volumesRoot);

// The records of this boot whose mount is still there with the same type, id and source.
std::vector<OwnedMount> live(const std::vector<OwnedMount>& records,
                             const std::vector<MountEntry>& table, std::int64_t boot);
bool owns(const std::string& path, const std::vector<MountEntry>& table,
          const std::vector<OwnedMount>& owned, std::int64_t boot);
// The record for the ownable mount at `path`; none when there is no such mount.
std::optional<OwnedMount> record(const std::string& path, const std::vector<MountEntry>& table,
                                 std::int64_t boot);
// The path of the one new mount a mount call made, when it is certain which one that was.
std::optional<std::string> mountCreatedByCall(const std::optional<std::vector<MountEntry>>& before,
                                              const std::optional<std::vector<MountEntry>>& after,
                                              const std::function<bool(const MountEntry&)>& isShare,
                                              const std::string& volumesRoot);

// Two hosts are one when their normal forms are equal or their addresses meet.
bool sameHost(const std::string& a, const std::string& b, const Resolve& resolve);
// An SMB mount of one of the backup destinations (network URLs such as "smb://tm@nas/Backups").
bool isTimeMachine(const MountEntry& entry, const std::vector<std::string>& destinationURLs,
                   const Resolve& resolve);

// The mounts an earlier version made for the configured shares: ownable, browsable, at a user
// volume path, mounted as the share's user, and not a backup destination. Each entry once.
std::vector<OwnedMount> adoptable(const std::vector<SMBShare>& shares,
                                  const std::vector<MountEntry>& table,
                                  const std::vector<std::string>& destinationURLs,
                                  std::int64_t boot, const Resolve& resolve,
                                  const std::string& volumesRoot);

enum class Reason { anotherApp, timeMachine, system, unknown };
// The text the user reads, in the edition's words.
std::string reasonText(Reason reason, const Wording& wording);

struct Verdict {
    enum class Kind { owned, leftAlone, notMounted };
    Kind kind = Kind::notMounted;
    std::string path;                 // owned: where to unmount
    Reason reason = Reason::unknown;  // leftAlone: why not

    static Verdict owned(std::string at) { return {Kind::owned, std::move(at), Reason::unknown}; }
    static Verdict leftAlone(Reason why) { return {Kind::leftAlone, {}, why}; }
    static Verdict notMounted() { return {}; }
    bool operator==(const Verdict&) const = default;
};

// Asked before every unmount. `ledger` is the ledger as loaded (pruned or not: only records of
// this boot that match the mount exactly count).
Verdict verdict(const SMBShare& share, const std::optional<std::vector<MountEntry>>& table,
                const std::vector<OwnedMount>& ledger, std::int64_t boot,
                const std::vector<std::string>& destinationURLs, const Resolve& resolve,
                const std::string& volumesRoot);

}  // namespace MountOwnership
}  // namespace kestrow
