#pragma once

#include <QDBusConnection>

#include <filesystem>
#include <memory>

#include "app/settings/settings_store.h"
#include "platform/notifications.h"
#include "platform/secret_store.h"
#include "shares/share_manager.h"
#include "shares/share_monitoring_service.h"
#include "shares/vpn_monitor.h"
#include "shares/wake_observer.h"
#include "support/clock.h"
#include "support/executor.h"
#include "support/log_sink.h"

namespace kestrow {

// The network-shares job as the agent runs it: the share manager on its queues, the
// reachability checks, the VPN monitor and the wake observer, over the desktop's mounts (gvfs),
// NetworkManager, logind and Avahi — or, in the demo, over the simulated desktop's shares, so
// that nothing real is mounted.
class ShareStack {
public:
    struct Options {
        bool demo = false;
        std::filesystem::path dataHome;    // where MountWarden/shares.json lives
        std::filesystem::path runtimeDir;  // $XDG_RUNTIME_DIR
    };

    ShareStack(Options options, Clock& clock, Executor& main, SettingsStore& standardStore,
               UserNotifications& notifications, SecretStore& keyring, LogSink& sink,
               DestinationURLs destinationURLs, Wording wording);
    ~ShareStack();
    ShareStack(const ShareStack&) = delete;
    ShareStack& operator=(const ShareStack&) = delete;

    ShareManager& manager();
    Service& monitoring();
    Service& vpnService();
    Service& wakeService();
    Observable<VPNMonitor::ServiceList>& vpnServices();
    // Whether a configured share with this network URL is connected now (a backup destination
    // on a connected share counts as reachable without a probe).
    bool connectedShare(const std::string& networkURL) const;

private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

}  // namespace kestrow
