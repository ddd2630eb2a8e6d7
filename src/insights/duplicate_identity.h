#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace kestrow {

// What a file is, whichever mount it was reached through. The device number alone is not enough:
// a share mounted twice, or the same server seen through two network mounts, gets a new device
// each time while its files keep their inode numbers. So each device is named after what its
// mount shows: a network or FUSE file system by its kind and source (the same share mounted twice
// reads the same), everything else by its device number, which every bind mount of it shares.
class DuplicateIdentity {
public:
    // The table of the mounts this process sees now; empty when it cannot be read.
    static DuplicateIdentity current();
    // The table described by the text of /proc/self/mountinfo. Lines that are not well formed
    // are passed over.
    static DuplicateIdentity fromMountInfo(std::string_view text);

    // The name of the file system a device number belongs to.
    std::string volumeOf(std::uint64_t device) const;
    // "volume:inode": the same for every name and every mount of one file.
    std::string fileOf(std::uint64_t device, std::uint64_t inode) const;

    std::size_t size() const { return volumes_.size(); }

private:
    std::map<std::uint64_t, std::string> volumes_;
};

}  // namespace kestrow
