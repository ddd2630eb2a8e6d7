#include "shares/mount_ownership.h"

#include <algorithm>

#include "shares/mount_matching.h"
#include "support/ascii_case.h"
#include "support/url_parts.h"

namespace kestrow::MountOwnership {
namespace {

const MountEntry* entryAt(const std::string& path, const std::vector<MountEntry>& table) {
    const auto it = std::find_if(table.begin(), table.end(),
                                 [&](const MountEntry& e) { return e.mountedOn == path; });
    return it == table.end() ? nullptr : &*it;
}

std::string comparableShare(const std::string& share) {
    std::string decoded = percentDecode(share);
    const auto first = decoded.find_first_not_of("/ \t\r\n");
    if (first == std::string::npos) return {};
    decoded = decoded.substr(first, decoded.find_last_not_of("/ \t\r\n") - first + 1);
    return asciiLowercase(decoded);
}

// The first path segment of a destination URL's path: the share on the server.
std::string firstSegment(const std::string& path) {
    const auto start = path.find_first_not_of('/');
    if (start == std::string::npos) return {};
    return path.substr(start, path.find('/', start) - start);
}

}  // namespace

bool ownableType(const std::string& fsType) {
    return fsType == "smbfs" || fsType == "webdav";
}

bool isUserVolumePath(const std::string& path, const std::string& volumesRoot) {
    if (volumesRoot.empty() || !path.starts_with(volumesRoot)) return false;
    const std::string rest = path.substr(volumesRoot.size());
    return !rest.empty() && rest.find('/') == std::string::npos && rest.front() != '.';
}

std::vector<OwnedMount> live(const std::vector<OwnedMount>& records,
                             const std::vector<MountEntry>& table, std::int64_t boot) {
    std::vector<OwnedMount> kept;
    for (const OwnedMount& r : records) {
        if (r.boot != boot) continue;
        const bool present = std::any_of(table.begin(), table.end(), [&](const MountEntry& e) {
            return e.mountedOn == r.mountedOn && ownableType(e.fsType) && e.fsid == r.fsid &&
                   e.from == r.from;
        });
        if (present) kept.push_back(r);
    }
    return kept;
}

bool owns(const std::string& path, const std::vector<MountEntry>& table,
          const std::vector<OwnedMount>& owned, std::int64_t boot) {
    const MountEntry* entry = entryAt(path, table);
    if (entry == nullptr || !ownableType(entry->fsType)) return false;
    return std::any_of(owned.begin(), owned.end(), [&](const OwnedMount& r) {
        return r.boot == boot && r.mountedOn == path && r.fsid == entry->fsid &&
               r.from == entry->from;
    });
}

std::optional<OwnedMount> record(const std::string& path, const std::vector<MountEntry>& table,
                                 std::int64_t boot) {
    const MountEntry* entry = entryAt(path, table);
    if (entry == nullptr || !ownableType(entry->fsType)) return std::nullopt;
    return OwnedMount{entry->mountedOn, entry->fsid, entry->from, boot};
}

std::optional<std::string> mountCreatedByCall(const std::optional<std::vector<MountEntry>>& before,
                                              const std::optional<std::vector<MountEntry>>& after,
                                              const std::function<bool(const MountEntry&)>& isShare,
                                              const std::string& volumesRoot) {
    if (!before || !after) return std::nullopt;
    std::optional<std::string> found;
    int candidates = 0;
    for (const MountEntry& entry : *after) {
        if (std::find(before->begin(), before->end(), entry) != before->end()) continue;
        if (!isShare(entry) || !ownableType(entry.fsType)) continue;
        if ((entry.flags & kDontBrowseFlag) != 0) continue;
        if (!isUserVolumePath(entry.mountedOn, volumesRoot)) continue;
        ++candidates;
        found = entry.mountedOn;
    }
    // With two new mounts it is not certain which one the call made, so neither becomes ours.
    if (candidates != 1) return std::nullopt;
    return found;
}

bool sameHost(const std::string& a, const std::string& b, const Resolve& resolve) {
    const std::string left = MountMatching::normalizeHost(a);
    const std::string right = MountMatching::normalizeHost(b);
    if (left.empty() || right.empty()) return false;
    if (left == right) return true;
    if (!resolve) return false;
    const auto leftAddresses = resolve(left);
    if (!leftAddresses || leftAddresses->empty()) return false;
    const auto rightAddresses = resolve(right);
    if (!rightAddresses) return false;
    return std::any_of(
        leftAddresses->begin(), leftAddresses->end(),
        [&](const std::string& address) { return rightAddresses->contains(address); });
}

bool isTimeMachine(const MountEntry& entry, const std::vector<std::string>& destinationURLs,
                   const Resolve& resolve) {
    if (!MountMatching::isSmbType(entry.fsType)) return false;
    const auto source = MountMatching::smbSource(entry.from);
    if (!source) return false;
    for (const std::string& text : destinationURLs) {
        const auto url = parseUrl(text);
        if (!url) continue;
        if (comparableShare(firstSegment(url->path)) != comparableShare(source->share)) continue;
        if (sameHost(url->host, source->host, resolve)) return true;
    }
    return false;
}

std::vector<OwnedMount> adoptable(const std::vector<SMBShare>& shares,
                                  const std::vector<MountEntry>& table,
                                  const std::vector<std::string>& destinationURLs,
                                  std::int64_t boot, const Resolve& resolve,
                                  const std::string& volumesRoot) {
    std::vector<OwnedMount> adopted;
    for (const SMBShare& share : shares) {
        for (const MountEntry& entry : table) {
            if (!MountMatching::matches(share, entry)) continue;
            if (!ownableType(entry.fsType) || (entry.flags & kDontBrowseFlag) != 0) continue;
            if (!isUserVolumePath(entry.mountedOn, volumesRoot)) continue;
            if (MountMatching::sourceUser(entry) != share.username) continue;
            if (isTimeMachine(entry, destinationURLs, resolve)) continue;
            const bool taken =
                std::any_of(adopted.begin(), adopted.end(),
                            [&](const OwnedMount& r) { return r.mountedOn == entry.mountedOn; });
            if (!taken) adopted.push_back({entry.mountedOn, entry.fsid, entry.from, boot});
        }
    }
    return adopted;
}

std::string reasonText(Reason reason, const Wording& wording) {
    switch (reason) {
        case Reason::anotherApp:
            return wording(
                "Connected by another app, or before this update — left alone. Eject it in "
                "Finder to disconnect.");
        case Reason::timeMachine:
            return wording("Time Machine's backup share — left alone");
        case Reason::system:
            return wording("Mounted by the system — left alone");
        case Reason::unknown:
            break;
    }
    return wording("Could not tell who connected it — left alone");
}

Verdict verdict(const SMBShare& share, const std::optional<std::vector<MountEntry>>& table,
                const std::vector<OwnedMount>& ledger, std::int64_t boot,
                const std::vector<std::string>& destinationURLs, const Resolve& resolve,
                const std::string& volumesRoot) {
    if (!table) return Verdict::leftAlone(Reason::unknown);
    const auto paths = MountMatching::mountedPaths(share, *table);
    if (paths.empty()) return Verdict::notMounted();
    std::optional<Reason> reason;
    for (const std::string& path : paths) {
        const MountEntry* entry = entryAt(path, *table);
        if (entry == nullptr) continue;
        if ((entry->flags & kDontBrowseFlag) != 0) {
            if (!reason) reason = Reason::system;
        } else if (isUserVolumePath(path, volumesRoot)) {
            if (isTimeMachine(*entry, destinationURLs, resolve)) {
                if (!reason) reason = Reason::timeMachine;
            } else if (owns(path, *table, ledger, boot)) {
                return Verdict::owned(path);
            } else if (!reason) {
                // Mounted where the user's volumes are, but not by Kestrow in this boot.
                reason = Reason::anotherApp;
            }
        } else if (!reason) {
            reason = Reason::system;
        }
    }
    return reason ? Verdict::leftAlone(*reason) : Verdict::notMounted();
}

}  // namespace kestrow::MountOwnership
