#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/mount_table.h"
#include "platform/network_path.h"
#include "platform/share_mounter.h"
#include "platform/volume_events.h"
#include "shares/connection_availability.h"

namespace kestrow::testing {

// The mount table as the test sets it. `readable = false` makes every reading fail; `onRead`
// runs before each reading, so a test can change the table between two readings.
class FakeMountTable final : public MountTable {
public:
    std::optional<std::vector<MountEntry>> current() override;
    std::int64_t bootIdentity() override { return boot; }
    std::string volumesRoot() const override { return root; }

    void add(MountEntry entry);
    void removeAt(const std::string& mountedOn);
    std::vector<MountEntry> entries() const;

    std::vector<MountEntry> table;
    bool readable = true;
    std::int64_t boot = 1700000000;
    std::string root = "/run/user/1000/gvfs/";
    std::function<void(FakeMountTable&)> onRead;
    int reads = 0;

private:
    mutable std::recursive_mutex mutex_;
};

// An SMB mount of `server`/`share` by gvfs at the volumes root, as Kestrow's mounts look.
MountEntry gvfsSmbEntry(const std::string& root, const std::string& server,
                        const std::string& share, std::int64_t fsid, const std::string& user = {});

// Records every call. A mount adds `mountsAs` (when set) to the table, as a mount that worked;
// `bridgeError` is handed back as the reason it could not even be tried.
class FakeShareMounter final : public ShareMounter {
public:
    explicit FakeShareMounter(FakeMountTable& table) : table_(table) {}
    MountCallResult mount(const MountRequest& request, const std::function<bool()>& isMounted,
                          std::stop_token stop) override;
    bool unmount(const std::string& mountedOn, std::string* error) override;

    std::function<std::optional<MountEntry>(const MountRequest&)> mountsAs;
    std::optional<std::string> bridgeError;
    bool unmountWorks = true;
    std::vector<MountRequest> mounts;
    std::vector<std::string> unmounts;

private:
    FakeMountTable& table_;
};

// Answers with `host` (the share's own host when unset); `reachable = false` answers none.
class FakeConnectionAvailability final : public ConnectionAvailability {
public:
    std::optional<std::string> waitForConnectionAvailability(
        const SMBShare& share, const std::function<bool()>& shouldKeepRetrying) override;
    bool localNetworkDenied() const override { return denied; }

    bool reachable = true;
    std::optional<std::string> host;
    bool denied = false;
    int calls = 0;
    // Runs inside the call, as a change that happens while the server is being checked.
    std::function<void()> during;
};

class FakeNetworkPath final : public NetworkPathMonitor {
public:
    void start(std::function<void(bool)> changed) override { changed_ = std::move(changed); }
    void stop() override { changed_ = nullptr; }
    void set(bool satisfied) {
        if (changed_) changed_(satisfied);
    }
    bool started() const { return static_cast<bool>(changed_); }

private:
    std::function<void(bool)> changed_;
};

class FakeVolumeEvents final : public VolumeEvents {
public:
    void start(std::function<void(std::optional<std::string>)> unmounted) override {
        unmounted_ = std::move(unmounted);
    }
    void stop() override { unmounted_ = nullptr; }
    void unmounted(std::optional<std::string> mountedOn) {
        if (unmounted_) unmounted_(std::move(mountedOn));
    }

private:
    std::function<void(std::optional<std::string>)> unmounted_;
};

}  // namespace kestrow::testing
