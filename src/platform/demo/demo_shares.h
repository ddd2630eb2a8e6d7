#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "platform/mount_table.h"
#include "platform/share_mounter.h"
#include "platform/vpn_services.h"
#include "shares/smb_share.h"

namespace kestrow {

// The simulated desktop's network: a NAS on the local network whose "Projects" share is
// connected, and an office file server that answers only through the office VPN, which is off,
// so its share waits and says why. Nothing real is mounted: connecting a demo share adds it to
// this table, disconnecting takes it out. Safe from any thread.
class DemoShares final : public MountTable, public ShareMounter, public VpnServices {
public:
    static constexpr const char* kStudioId = "3F2A9C4E-7B1D-4E8A-9C6F-2D5B8A1E4C70";
    static constexpr const char* kOfficeId = "8D4E1B7A-2C9F-4A3D-B6E5-1F7C0A9D3E82";
    static constexpr const char* kOfficeVpnId = "c6a1e2f4-93b7-4d58-8e21-5a7f0b3c9d14";

    explicit DemoShares(std::string runtimeDir = "/run/user/1000");

    // "Studio NAS" (SMB, nas.local/Projects) and "Office Files" (WebDAV over HTTPS,
    // files.example.com/team, needing "Office VPN").
    std::vector<SMBShare> records() const;

    std::optional<std::vector<MountEntry>> current() override;
    std::int64_t bootIdentity() override { return 1; }
    std::string volumesRoot() const override { return runtimeDir_ + "/gvfs/"; }

    // Connects whatever the URL names, unless only the VPN that is off could reach it.
    MountCallResult mount(const MountRequest& request, const std::function<bool()>& isMounted,
                          std::stop_token stop) override;
    bool unmount(const std::string& mountedOn, std::string* error) override;

    std::optional<std::vector<VPNService>> read() override;

private:
    std::string runtimeDir_;
    std::mutex mutex_;
    std::vector<MountEntry> entries_;
    std::int64_t nextFsid_ = 1001;
};

}  // namespace kestrow
