#include "insights/duplicate_identity.h"

#include <sys/sysmacros.h>

#include <array>

#include "support/ascii_case.h"
#include "support/atomic_file.h"
#include "support/mount_info_field.h"

namespace kestrow {
namespace {

std::string deviceName(std::uint64_t device) {
    return std::to_string(major(device)) + "." + std::to_string(minor(device));
}

// Network file systems: their servers hand out the inode numbers, so one share keeps them however
// often it is mounted. An SMB share is named by its server and share (a mount of a folder inside
// it still numbers files the share's way).
std::optional<std::string> networkVolume(std::string_view type, std::string_view source) {
    if (type == "cifs" || type == "smb3" || type == "smbfs") {
        std::string_view rest = source;
        while (rest.starts_with('/') || rest.starts_with('\\')) rest.remove_prefix(1);
        std::size_t cut = rest.find_first_of("/\\");
        if (cut != std::string_view::npos) cut = rest.find_first_of("/\\", cut + 1);
        return "smb://" + asciiLowercase(rest.substr(0, cut));
    }
    if (type == "nfs" || type == "nfs4") return "nfs://" + std::string(source);
    static constexpr std::array<std::string_view, 6> kNetwork{"9p",  "ceph",  "glusterfs",
                                                              "afs", "davfs", "virtiofs"};
    for (const auto name : kNetwork)
        if (type == name) return std::string(type) + "://" + std::string(source);
    // A FUSE view (sshfs, a share through gvfs, a bound folder) is named by its program and what
    // it shows. Its inode numbers are its own, so two views of one folder through different
    // programs still read as two volumes: the move checks the copy that stays afterwards.
    if (type == "fuse" || type.starts_with("fuse.") || type == "fuseblk")
        return std::string(type) + "://" + std::string(source);
    return std::nullopt;
}

}  // namespace

DuplicateIdentity DuplicateIdentity::current() {
    return fromMountInfo(readFile("/proc/self/mountinfo").value_or(""));
}

DuplicateIdentity DuplicateIdentity::fromMountInfo(std::string_view text) {
    DuplicateIdentity identity;
    for (const MountInfoRow& row : parseMountInfo(text)) {
        if (!row.device || row.type.empty()) continue;
        auto name = networkVolume(row.type, row.source);
        identity.volumes_.try_emplace(*row.device,
                                      name ? std::move(*name) : deviceName(*row.device));
    }
    return identity;
}

std::string DuplicateIdentity::volumeOf(std::uint64_t device) const {
    const auto found = volumes_.find(device);
    return found != volumes_.end() ? found->second : deviceName(device);
}

std::string DuplicateIdentity::fileOf(std::uint64_t device, std::uint64_t inode) const {
    return volumeOf(device) + ":" + std::to_string(inode);
}

}  // namespace kestrow
