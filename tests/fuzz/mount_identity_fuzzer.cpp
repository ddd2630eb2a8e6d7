// The mount table is written by the kernel, but its sources are whatever a user or a FUSE program
// passed to mount: any text must give a table whose every volume has a name.
#include <sys/sysmacros.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "insights/duplicate_identity.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto mounts = kestrow::DuplicateIdentity::fromMountInfo(text);
    for (unsigned minor = 0; minor < 64; ++minor) {
        if (mounts.volumeOf(makedev(0, minor)).empty()) __builtin_trap();
        if (mounts.volumeOf(makedev(8, minor)).empty()) __builtin_trap();
    }
    return 0;
}
