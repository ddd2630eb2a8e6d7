// The shares file is hand-editable and read at every start.
#include <cstddef>
#include <cstdint>
#include <string>

#include "shares/mount_matching.h"
#include "shares/share_store.h"
#include "shares/share_url.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    for (const kestrow::SMBShare& share : kestrow::ShareStore::decode(text)) {
        (void)kestrow::mountUrl(share, text.substr(0, 8), share.host);
        (void)kestrow::webDAVProbeTarget(share);
        (void)kestrow::displayHost(share);
        (void)kestrow::MountMatching::isMounted(share, {{"smbfs", share.host, 0, "/x", 1}});
    }
    (void)kestrow::MountMatching::smbSource(text);
    return 0;
}
