#include "backup/backup_source.h"

namespace kestrow {

std::string_view backupSourceKindName(BackupSourceKind kind) {
    switch (kind) {
        case BackupSourceKind::restic:
            return "restic";
        case BackupSourceKind::dejaDup:
            return "dejaDup";
        case BackupSourceKind::timeMachine:
            return "timeMachine";
    }
    return "restic";
}

}  // namespace kestrow
