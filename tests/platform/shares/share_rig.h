#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "platform/linux/shares/gvfs_mount_table.h"
#include "platform/share_mounter.h"
#include "support/share_servers.h"

namespace kestrow::testing {

// Why the share contract tests cannot run here; none when they can.
std::optional<std::string> shareRigMissing();

// The request the share manager would make for the test servers' share.
MountRequest smbRequest(const ShareServers& servers, const std::string& password);
MountRequest webDavRequest(const ShareServers& servers, const std::string& password);

// The entry of `fsType` from `from` in the table now, if there is one.
std::optional<MountEntry> findMount(GvfsMountTable& table, const std::string& fsType,
                                    const std::string& from);

// Reads a file through its FUSE path, retrying while gvfs still answers EIO (it does for a
// second or two after a remount).
std::optional<std::string> readThroughFuse(
    const std::string& path, std::chrono::milliseconds limit = std::chrono::seconds(3));

// Seconds taken by `body`.
template <typename Body>
double secondsFor(Body body) {
    const auto start = std::chrono::steady_clock::now();
    body();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace kestrow::testing
