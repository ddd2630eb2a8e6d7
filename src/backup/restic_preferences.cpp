#include "backup/restic_preferences.h"

#include <algorithm>

namespace kestrow {
namespace {

// restic's own code when it gave one; an attempt that never reached it (no password, no disk,
// stopped) still failed, and the verdict must see a failure.
constexpr int kFailedWithoutCode = 1;

std::optional<WallTime> newestActivity(const Destination& destination) {
    std::optional<WallTime> newest = destination.newestAttempt();
    if (const auto snapshot = destination.newestSnapshot();
        snapshot && (!newest || *snapshot > *newest))
        newest = snapshot;
    return newest;
}

}  // namespace

Destination ResticPreferences::destinationOf(const ResticJobRecord& record) {
    Destination destination;
    destination.id = record.job.id;
    destination.volumeName = record.job.name;
    destination.snapshots = record.snapshotEnds;
    for (const BackupAttempt& attempt : record.attempts) {
        destination.attempts.push_back(attempt.start);
        // A backup that ended after the listing was taken is not in it yet; the ledger knows it
        // made a snapshot, so it counts at once rather than after the next listing.
        const bool madeSnapshot = !attempt.failure && attempt.end && attempt.snapshot;
        // Older restic names the new snapshot by its short id, the listing by the full one.
        const bool listed =
            attempt.snapshot && !attempt.snapshot->empty() &&
            std::any_of(record.snapshotIds.begin(), record.snapshotIds.end(),
                        [&](const std::string& id) { return id.starts_with(*attempt.snapshot); });
        if (madeSnapshot && !listed && (!record.listedAt || *attempt.end > *record.listedAt))
            destination.snapshots.push_back(*attempt.end);
    }
    std::sort(destination.snapshots.begin(), destination.snapshots.end());
    std::sort(destination.attempts.begin(), destination.attempts.end());
    // The newest attempt that ended says how the last one went.
    for (auto it = record.attempts.rbegin(); it != record.attempts.rend(); ++it) {
        if (!it->end) continue;
        destination.lastResult = it->failure ? it->exitStatus.value_or(kFailedWithoutCode) : 0;
        if (it->failure && destination.lastResult == 0) destination.lastResult = kFailedWithoutCode;
        break;
    }
    if (record.probeURL) {
        destination.isNetwork = true;
        destination.networkURL = record.probeURL;
    }
    return destination;
}

Preferences ResticPreferences::make(const std::vector<ResticJobRecord>& jobs) {
    Preferences preferences;
    std::vector<Destination> destinations;
    bool automatic = false;
    for (const ResticJobRecord& record : jobs) {
        destinations.push_back(destinationOf(record));
        automatic = automatic || record.job.automatic;
    }
    // The job that was busy last is the one the verdict speaks of, as with the last-used
    // destination of other sources; a tie keeps the first listed.
    const Destination* last = nullptr;
    for (const Destination& destination : destinations) {
        const auto activity = newestActivity(destination);
        if (last == nullptr ||
            (activity && (!newestActivity(*last) || *activity > *newestActivity(*last))))
            last = &destination;
    }
    if (last != nullptr) preferences.lastDestination = *last;
    preferences.destinations = std::move(destinations);
    preferences.automaticBackups = automatic;
    return preferences;
}

}  // namespace kestrow
