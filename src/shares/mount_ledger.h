#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "app/settings/settings_store.h"
#include "shares/mount_entry.h"

namespace kestrow {

// One mount Kestrow made: where, which mount instance, from what, and in which boot. A mount
// never survives a restart, so a record of another boot describes nothing that exists now.
struct OwnedMount {
    std::string mountedOn;
    std::int64_t fsid = 0;
    std::string from;
    std::int64_t boot = 0;

    bool operator==(const OwnedMount&) const = default;
};

// The ledger of owned mounts, kept in the standard store under "ownedMounts" as the data value
// of a JSON array. It is the only thing that lets Kestrow unmount anything, so every doubt
// reads as "not ours": data that does not decode as a whole reads as an empty ledger. The mount
// and unmount queues and the main thread all change it, so each load-change-save runs under
// one lock.
class MountLedger {
public:
    explicit MountLedger(SettingsStore& store) : store_(store) {}

    std::vector<OwnedMount> load() const;
    void save(const std::vector<OwnedMount>& records);

    static std::vector<OwnedMount> decode(const PlistData& data);
    static PlistData encode(const std::vector<OwnedMount>& records);

    // Keeps only the records of this boot whose mount is still in `table` as it was recorded,
    // and saves when that dropped something. The pruned ledger.
    std::vector<OwnedMount> prune(const std::vector<MountEntry>& table, std::int64_t boot);
    // Records the mount now at `mountPoint` after a mount call that ended with `status` (0 =
    // worked); replaces an older record at the same path. False when nothing was recorded.
    bool recordNewMount(int status, const std::string& mountPoint,
                        const std::optional<std::vector<MountEntry>>& table, std::int64_t boot);
    // Forgets every record at `mountedOn` (the mount went away).
    void drop(const std::string& mountedOn);
    // Adds the records whose path is not in the ledger yet (after pruning); how many were added.
    std::size_t addMissing(const std::vector<OwnedMount>& records,
                           const std::vector<MountEntry>& table, std::int64_t boot);

private:
    std::vector<OwnedMount> loadLocked() const;
    void saveLocked(const std::vector<OwnedMount>& records);

    SettingsStore& store_;
    mutable std::mutex mutex_;
};

}  // namespace kestrow
