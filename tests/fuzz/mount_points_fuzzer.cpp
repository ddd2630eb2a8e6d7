// Mount tables as /proc/self/mountinfo could show them, and the lookups made on them.
#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/linux/mount_points.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const auto points = kestrow::MountPoints::parse(text);
    for (const auto& point : points) {
        (void)kestrow::MountPoints::atOrBelow(points, point);
        (void)kestrow::MountPoints::holding(points, point);
    }
    (void)kestrow::MountPoints::holding(points, "/");
    return 0;
}
