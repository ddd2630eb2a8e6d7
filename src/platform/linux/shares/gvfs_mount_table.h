#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/mount_table.h"

namespace kestrow {

// The mount table on Linux: the desktop's network mounts as gvfsd's mount tracker lists them,
// joined with the kernel's /proc/self/mountinfo. The tracker is asked with a bounded blocking
// D-Bus call on the session bus, safe from any thread.
class GvfsMountTable final : public MountTable {
public:
    // The defaults are the real ones; tests point them at their own files.
    explicit GvfsMountTable(std::string volumesRoot = defaultVolumesRoot(),
                            std::string mountInfoPath = "/proc/self/mountinfo",
                            std::string bootIdPath = "/proc/sys/kernel/random/boot_id");

    // Absent when the kernel's table cannot be read or gvfsd is there but does not answer in
    // time; a session without gvfsd simply has no gvfs mounts.
    std::optional<std::vector<MountEntry>> current() override;
    std::int64_t bootIdentity() override;
    std::string volumesRoot() const override { return volumesRoot_; }

    // Only the mount service's half, for callers that know they want nothing else.
    static std::optional<std::vector<MountEntry>> gvfsMounts(const std::string& volumesRoot);
    // "$XDG_RUNTIME_DIR/gvfs/", where gvfsd-fuse shows every gvfs mount.
    static std::string defaultVolumesRoot();

private:
    std::string volumesRoot_;
    std::string mountInfoPath_;
    std::string bootIdPath_;
};

}  // namespace kestrow
