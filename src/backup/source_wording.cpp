#include "backup/source_wording.h"

namespace kestrow {

Wording linuxWording(const std::optional<BackupSourceName>& source) {
    return Wording::linux(source ? std::optional(source->name) : std::nullopt);
}

}  // namespace kestrow
