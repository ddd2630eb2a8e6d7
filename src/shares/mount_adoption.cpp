#include "shares/mount_adoption.h"

#include "app/settings/settings_keys.h"

namespace kestrow {

bool adoptEarlierMounts(const std::vector<SMBShare>& shares, MountTable& table,
                        const DestinationURLs& destinationURLs, MountLedger& ledger,
                        SettingsStore& store, const MountOwnership::Resolve& resolve,
                        const Wording& wording, const Logger& log) {
    if (store.boolValue(keys::adoptedPreUpdateMounts).value_or(false)) return true;
    const auto entries = table.current();
    const auto urls = destinationURLs ? destinationURLs() : std::nullopt;
    // Without the backup destinations a backup share could be adopted and later unmounted in
    // the middle of a backup; without the table nothing can be told. Try again next launch.
    if (!entries || !urls) {
        log.notice("{}", wording("earlier mounts not adopted yet (the mount table or the Time "
                                 "Machine settings could not be read); will try at the next "
                                 "launch"));
        return false;
    }
    const std::int64_t boot = table.bootIdentity();
    const auto adopted =
        MountOwnership::adoptable(shares, *entries, *urls, boot, resolve, table.volumesRoot());
    ledger.addMissing(adopted, *entries, boot);
    store.set(keys::adoptedPreUpdateMounts, PlistValue(true));
    log.notice("adopted {} mount(s) an earlier version made", adopted.size());
    return true;
}

}  // namespace kestrow
