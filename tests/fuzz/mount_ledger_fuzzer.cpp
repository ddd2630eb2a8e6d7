// The mount ledger is read from a settings file anyone can edit: any data either decodes as
// records that encode and decode back to themselves, or reads as an empty ledger.
#include <cstddef>
#include <cstdint>

#include "shares/mount_ledger.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const kestrow::PlistData bytes(data, data + size);
    const auto records = kestrow::MountLedger::decode(bytes);
    if (records.empty()) return 0;
    if (kestrow::MountLedger::decode(kestrow::MountLedger::encode(records)) != records) {
        // Paths that are not UTF-8 are written with replacement characters; only those may
        // differ after a round trip.
        bool allUtf8 = true;
        for (const auto& r : records)
            for (unsigned char c : r.mountedOn + r.from)
                if (c >= 0x80) allUtf8 = false;
        if (allUtf8) __builtin_trap();
    }
    return 0;
}
