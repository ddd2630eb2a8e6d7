#pragma once

#include <optional>

#include "backup/backup_source.h"
#include "support/wording.h"

namespace kestrow {

// The Linux wording for whatever source backs the computer up now: "Time Machine" stays only
// when that is the source, while "Mac", "Finder" and the like become Linux's words regardless.
inline Wording sourceWording(const std::optional<BackupSourceName>& source) {
    return Wording::linux(source ? std::optional(source->name) : std::nullopt);
}

}  // namespace kestrow
