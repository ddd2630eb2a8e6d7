#pragma once

#include <optional>

#include "backup/backup_source.h"
#include "support/wording.h"

namespace kestrow {

// How the Linux edition says the product's texts while `source` backs the computer up: the
// source's own name where the product says "Time Machine", "the backup" while there is none.
Wording linuxWording(const std::optional<BackupSourceName>& source);

}  // namespace kestrow
