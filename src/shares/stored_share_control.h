#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/mount_table.h"
#include "shares/share_control.h"
#include "shares/share_passwords.h"
#include "shares/share_store.h"

namespace kestrow {

// The shares as the shares file and the keyring hold them, for a process in which no share
// manager runs (the command line without an agent). The list and the passwords change exactly as
// the manager changes them: every edit rewrites the file, an empty password keeps the stored
// one, removing a share forgets its password. It connects nothing and disconnects nothing: a
// mount is refused with the reason, and an unmount only ever confirms that a share the mount
// table does not show is disconnected; anything mounted is left alone, since without the
// manager's ledger nothing here can tell who connected it.
class StoredShareControl final : public ShareControl {
public:
    static constexpr const char* kCannotConnect =
        "Kestrow is not running, so it cannot connect the share now.";

    StoredShareControl(ShareStore& store, SharePasswords& passwords, MountTable& table);

    Observable<std::vector<SMBShare>>& shares() override { return shares_; }
    void add(SMBShare share, const std::string& password) override;
    void update(SMBShare share, const std::string& password) override;
    void remove(const SMBShare& share) override;
    void mount(const SMBShare& share) override;
    void unmount(const SMBShare& share) override;

    // No keyring write or removal is still under way: the process may end.
    bool settled() const { return *pending_ == 0; }

private:
    void save(std::vector<SMBShare> shares);
    void setLive(const std::string& id, MountStatus status, std::optional<std::string> error);
    std::function<void()> track();

    ShareStore& store_;
    SharePasswords& passwords_;
    MountTable& table_;
    Observable<std::vector<SMBShare>> shares_;
    std::shared_ptr<int> pending_ = std::make_shared<int>(0);
};

}  // namespace kestrow
