#include "support/share_fakes.h"

#include <algorithm>

namespace kestrow::testing {

std::optional<std::vector<MountEntry>> FakeMountTable::current() {
    const std::lock_guard lock(mutex_);
    ++reads;
    if (onRead) onRead(*this);
    if (!readable) return std::nullopt;
    return table;
}

void FakeMountTable::add(MountEntry entry) {
    const std::lock_guard lock(mutex_);
    table.push_back(std::move(entry));
}

void FakeMountTable::removeAt(const std::string& mountedOn) {
    const std::lock_guard lock(mutex_);
    std::erase_if(table, [&](const MountEntry& e) { return e.mountedOn == mountedOn; });
}

std::vector<MountEntry> FakeMountTable::entries() const {
    const std::lock_guard lock(mutex_);
    return table;
}

MountEntry gvfsSmbEntry(const std::string& root, const std::string& server,
                        const std::string& share, std::int64_t fsid, const std::string& user) {
    MountEntry entry;
    entry.fsType = "smbfs";
    entry.from = "//" + (user.empty() ? std::string() : user + "@") + server + "/" + share;
    entry.mountedOn = root + "smb-share:server=" + server + ",share=" + share;
    entry.fsid = fsid;
    return entry;
}

MountCallResult FakeShareMounter::mount(const MountRequest& request,
                                        const std::function<bool()>& isMounted, std::stop_token) {
    mounts.push_back(request);
    if (bridgeError) return {bridgeError};
    if (mountsAs) {
        if (auto entry = mountsAs(request)) table_.add(std::move(*entry));
    }
    // The real mounter ends early once the share shows in the table.
    (void)isMounted();
    return {};
}

bool FakeShareMounter::unmount(const std::string& mountedOn, std::string* error) {
    unmounts.push_back(mountedOn);
    if (!unmountWorks) {
        if (error) *error = "busy";
        return false;
    }
    table_.removeAt(mountedOn);
    return true;
}

std::optional<std::string> FakeConnectionAvailability::waitForConnectionAvailability(
    const SMBShare& share, const std::function<bool()>& shouldKeepRetrying) {
    ++calls;
    if (during) during();
    if (!shouldKeepRetrying()) return std::nullopt;
    if (!reachable) return std::nullopt;
    return host.value_or(share.host);
}

}  // namespace kestrow::testing
