// Mount records as a hostile or broken mount service could send them, and kernel mount tables.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/linux/shares/gvfs_mount_record.h"
#include "shares/mount_matching.h"

namespace {

// The input is cut at NUL bytes into the record's texts, then key/value pairs of the spec.
std::vector<std::string> fields(const std::string& text) {
    std::vector<std::string> parts(1);
    for (const char c : text) {
        if (c == '\0')
            parts.emplace_back();
        else
            parts.back() += c;
    }
    return parts;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const auto parts = fields(text);
    kestrow::GvfsMountRecord record;
    const auto at = [&parts](std::size_t i) { return i < parts.size() ? parts[i] : std::string(); };
    record.dbusId = at(0);
    record.objectPath = at(1);
    record.stableName = at(2);
    record.fuseMountpoint = at(3);
    record.specPrefix = at(4);
    record.userVisible = size % 2 == 0;
    for (std::size_t i = 5; i + 1 < parts.size(); i += 2)
        record.specItems.emplace_back(parts[i], parts[i + 1]);
    if (const auto entry = kestrow::gvfsMountEntry(record, "/run/user/0/gvfs/")) {
        (void)kestrow::MountMatching::smbSource(entry->from);
        (void)kestrow::MountMatching::sourceUser(*entry);
    }
    for (const auto& entry : kestrow::kernelMountEntries(text))
        (void)kestrow::MountMatching::smbSource(entry.from);
    (void)kestrow::bootIdentityFromId(text);
    return 0;
}
