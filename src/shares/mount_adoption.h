#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "app/settings/settings_store.h"
#include "platform/mount_table.h"
#include "shares/mount_ledger.h"
#include "shares/mount_ownership.h"
#include "shares/smb_share.h"
#include "support/logger.h"

namespace kestrow {

// The backup destinations' network URLs; none when they could not be read.
using DestinationURLs = std::function<std::optional<std::vector<std::string>>()>;

// Earlier versions mounted shares without keeping a ledger. Once, at the first start that can
// read both the mount table and the backup settings, the mounts that match a configured share
// (and its user) are taken into the ledger, so the user can disconnect them from Kestrow.
// Blocking: runs on a queue, never the main thread. True when it ran (or had run before).
bool adoptEarlierMounts(const std::vector<SMBShare>& shares, MountTable& table,
                        const DestinationURLs& destinationURLs, MountLedger& ledger,
                        SettingsStore& store, const MountOwnership::Resolve& resolve,
                        const Wording& wording, const Logger& log);

}  // namespace kestrow
