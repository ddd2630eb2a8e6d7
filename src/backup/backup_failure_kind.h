#pragma once

#include <optional>
#include <string_view>

#include "backup/backup_attempt.h"

namespace kestrow {

// "diskNotConnected", "wrongPassword"...: the names the attempt ledger and --json use.
std::string_view backupFailureKindName(BackupFailureKind kind);
std::optional<BackupFailureKind> backupFailureKindNamed(std::string_view name);

}  // namespace kestrow
