#include "insights/duplicate_identity.h"

#include <sys/sysmacros.h>

#include <array>
#include <charconv>
#include <fstream>
#include <sstream>
#include <vector>

#include "support/ascii_case.h"

namespace kestrow {
namespace {

std::vector<std::string_view> fieldsOf(std::string_view line) {
    std::vector<std::string_view> fields;
    std::size_t start = 0;
    while (start < line.size()) {
        const std::size_t end = line.find(' ', start);
        const std::size_t stop = end == std::string_view::npos ? line.size() : end;
        if (stop > start) fields.push_back(line.substr(start, stop - start));
        start = stop + 1;
    }
    return fields;
}

std::optional<std::uint64_t> deviceOf(std::string_view majorMinor) {
    const auto colon = majorMinor.find(':');
    if (colon == std::string_view::npos) return std::nullopt;
    unsigned major = 0;
    unsigned minor = 0;
    const auto m = majorMinor.substr(0, colon);
    const auto n = majorMinor.substr(colon + 1);
    if (m.empty() || n.empty()) return std::nullopt;
    if (std::from_chars(m.data(), m.data() + m.size(), major).ptr != m.data() + m.size() ||
        std::from_chars(n.data(), n.data() + n.size(), minor).ptr != n.data() + n.size()) {
        return std::nullopt;
    }
    return makedev(major, minor);
}

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
    std::ifstream in("/proc/self/mountinfo");
    std::stringstream text;
    text << in.rdbuf();
    return fromMountInfo(text.str());
}

DuplicateIdentity DuplicateIdentity::fromMountInfo(std::string_view text) {
    DuplicateIdentity identity;
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = text.find('\n', start);
        if (end == std::string_view::npos) end = text.size();
        const std::string_view line = text.substr(start, end - start);
        start = end + 1;
        // ID PARENT MAJOR:MINOR ROOT MOUNTPOINT OPTIONS [OPTIONAL...] - TYPE SOURCE SUPEROPTIONS
        const auto fields = fieldsOf(line);
        if (fields.size() < 9) continue;
        const auto device = deviceOf(fields[2]);
        if (!device) continue;
        std::size_t dash = 6;
        while (dash < fields.size() && fields[dash] != "-") ++dash;
        if (dash + 2 >= fields.size()) continue;
        auto name = networkVolume(fields[dash + 1], fields[dash + 2]);
        identity.volumes_.try_emplace(*device, name ? std::move(*name) : deviceName(*device));
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
