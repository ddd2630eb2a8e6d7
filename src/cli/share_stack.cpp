#include "cli/share_stack.h"

#include <QDBusConnection>

#include "platform/demo/demo_shares.h"
#include "platform/linux/shares/avahi_service_browser.h"
#include "platform/linux/shares/getaddrinfo_host_resolver.h"
#include "platform/linux/shares/gio_share_mounter.h"
#include "platform/linux/shares/gvfs_mount_table.h"
#include "platform/linux/shares/gvfs_volume_events.h"
#include "platform/linux/shares/logind_power_events.h"
#include "platform/linux/shares/network_manager_path_monitor.h"
#include "platform/linux/shares/network_manager_vpn_services.h"
#include "platform/linux/shares/posix_tcp_prober.h"
#include "shares/host_lookup.h"
#include "shares/mount_matching.h"
#include "shares/reachability.h"
#include "shares/share_passwords.h"
#include "shares/share_store.h"
#include "shares/share_url.h"
#include "support/ascii_case.h"
#include "support/serial_queue.h"
#include "support/url_parts.h"

namespace kestrow {
namespace {

// Demo answers: the network is there, nothing unmounts by itself, nothing sleeps, and a server
// answers unless its VPN is off.
class DemoSurroundings final : public NetworkPathMonitor,
                               public VolumeEvents,
                               public SystemPowerEvents,
                               public ConnectionAvailability {
public:
    DemoSurroundings(DemoShares& shares, Executor& main) : shares_(shares), main_(main) {}
    void start(std::function<void(bool)> changed) override {
        main_.post([changed = std::move(changed)] { changed(true); });
    }
    void start(std::function<void(std::optional<std::string>)>) override {}
    bool start(std::function<void(WallTime)>, std::function<void()>) override { return true; }
    void stop() override {}
    std::optional<std::uint64_t> wakeCapabilities() override { return std::nullopt; }
    std::optional<std::string> waitForConnectionAvailability(
        const SMBShare& share, const std::function<bool()>& keepRetrying) override {
        if (!keepRetrying()) return std::nullopt;
        if (share.vpnServiceID) {
            const auto vpns = shares_.read();
            for (const VPNService& vpn : vpns.value_or(std::vector<VPNService>{}))
                if (vpn.id == *share.vpnServiceID && vpn.state != VPNConnectionState::connected)
                    return std::nullopt;
        }
        return share.host;
    }
    bool localNetworkDenied() const override { return false; }

private:
    DemoShares& shares_;
    Executor& main_;
};

class CallService final : public Service {
public:
    CallService(std::function<void()> start, std::function<void()> stop)
        : start_(std::move(start)), stop_(std::move(stop)) {}
    void start() override { start_(); }
    void stop() override { stop_(); }

private:
    std::function<void()> start_;
    std::function<void()> stop_;
};

}  // namespace

struct ShareStack::Parts {
    ShareStore store;
    SharePasswords passwords;

    std::unique_ptr<DemoShares> demo;
    std::unique_ptr<DemoSurroundings> demoSurroundings;

    std::unique_ptr<GvfsMountTable> table;
    std::unique_ptr<GioShareMounter> mounter;
    std::unique_ptr<GetaddrinfoHostResolver> resolver;
    std::unique_ptr<HostLookup> lookup;
    std::unique_ptr<PosixTcpProber> prober;
    std::unique_ptr<AvahiServiceBrowser> browser;
    std::unique_ptr<Reachability> reachability;
    std::unique_ptr<NetworkManagerPathMonitor> path;
    std::unique_ptr<GvfsVolumeEvents> volumeEvents;
    std::unique_ptr<NetworkManagerVpnServices> vpns;
    std::unique_ptr<LogindPowerEvents> power;

    std::unique_ptr<ShareManager> manager;
    std::unique_ptr<ShareMonitoringService> monitoring;
    std::unique_ptr<VPNMonitor> vpnMonitor;
    std::unique_ptr<WakeObserver> wake;
    std::unique_ptr<CallService> vpnService;
    std::unique_ptr<CallService> wakeService;
    // Last, so they go first: a queue finishes its running task (a mount is stopped by the
    // manager) while everything that task touches is still there.
    SerialQueue mountQueue{"bar.vemb.orvel.shares.mount"};
    SerialQueue unmountQueue{"bar.vemb.orvel.shares.unmount"};
    SerialQueue statusQueue{"bar.vemb.orvel.shares.status"};
    SerialQueue lookupQueue{"bar.vemb.orvel.shares.lookup"};
    SerialQueue vpnQueue{"bar.vemb.orvel.shares.vpn"};

    Parts(const Options& options, SecretStore& keyring)
        : store(options.dataHome), passwords(keyring) {}
};

ShareStack::ShareStack(Options options, Clock& clock, Executor& main, SettingsStore& standardStore,
                       UserNotifications& notifications, SecretStore& keyring, LogSink& sink,
                       DestinationURLs destinationURLs, Wording wording)
    : parts_(std::make_unique<Parts>(options, keyring)) {
    Parts& p = *parts_;
    MountTable* table = nullptr;
    ShareMounter* mounter = nullptr;
    ConnectionAvailability* availability = nullptr;
    NetworkPathMonitor* path = nullptr;
    VolumeEvents* volumeEvents = nullptr;
    VpnServices* vpns = nullptr;
    SystemPowerEvents* power = nullptr;
    MountOwnership::Resolve resolve;
    if (options.demo) {
        p.demo = std::make_unique<DemoShares>(options.runtimeDir.string());
        p.demoSurroundings = std::make_unique<DemoSurroundings>(*p.demo, main);
        // The demo's own records, every start, so the demo never reads or writes the user's.
        if (p.store.load().empty()) p.store.save(p.demo->records());
        table = p.demo.get();
        mounter = p.demo.get();
        vpns = p.demo.get();
        availability = p.demoSurroundings.get();
        path = p.demoSurroundings.get();
        volumeEvents = p.demoSurroundings.get();
        power = p.demoSurroundings.get();
        resolve = [](const std::string&) { return std::optional<std::set<std::string>>(); };
    } else {
        const QDBusConnection systemBus = QDBusConnection::systemBus();
        p.table = std::make_unique<GvfsMountTable>();
        p.mounter = std::make_unique<GioShareMounter>();
        p.resolver = std::make_unique<GetaddrinfoHostResolver>();
        p.lookup = std::make_unique<HostLookup>(*p.resolver, clock, p.lookupQueue);
        p.prober = std::make_unique<PosixTcpProber>(*p.lookup);
        p.browser = std::make_unique<AvahiServiceBrowser>(systemBus);
        p.reachability = std::make_unique<Reachability>(*p.prober, *p.browser, clock, sink);
        p.path = std::make_unique<NetworkManagerPathMonitor>(systemBus);
        p.volumeEvents = std::make_unique<GvfsVolumeEvents>(QDBusConnection::sessionBus(),
                                                            p.table->volumesRoot());
        p.vpns = std::make_unique<NetworkManagerVpnServices>(systemBus);
        p.power = std::make_unique<LogindPowerEvents>(systemBus);
        table = p.table.get();
        mounter = p.mounter.get();
        availability = p.reachability.get();
        path = p.path.get();
        volumeEvents = p.volumeEvents.get();
        vpns = p.vpns.get();
        power = p.power.get();
        HostLookup& lookup = *p.lookup;
        resolve = [&lookup](const std::string& host) {
            return lookup.resolve(host, Reachability::connectionReachabilityTimeout);
        };
    }

    p.manager = std::make_unique<ShareManager>(
        ShareManagerParts{clock, main, p.mountQueue, p.unmountQueue, p.statusQueue, *table,
                          *mounter, *availability, *path, *volumeEvents, p.passwords, notifications,
                          standardStore, p.store, Logger(sink, LogArea::mounting),
                          std::move(destinationURLs), std::move(resolve), std::move(wording)});
    p.monitoring = std::make_unique<ShareMonitoringService>(*p.manager);
    ShareManager& manager = *p.manager;
    p.vpnMonitor = std::make_unique<VPNMonitor>(
        *vpns, p.vpnQueue, main, sink,
        [&manager] {
            std::vector<std::string> ids;
            for (const SMBShare& share : manager.shares().get())
                if (share.vpnServiceID) ids.push_back(*share.vpnServiceID);
            return ids;
        },
        [&manager] { manager.mountAllAutoShares(); });
    p.wake = std::make_unique<WakeObserver>(*power, main, sink,
                                            [&manager] { manager.mountAllAutoShares(); });
    VPNMonitor& vpnMonitor = *p.vpnMonitor;
    WakeObserver& wake = *p.wake;
    p.vpnService = std::make_unique<CallService>([&vpnMonitor] { vpnMonitor.start(); },
                                                 [&vpnMonitor] { vpnMonitor.stop(); });
    p.wakeService =
        std::make_unique<CallService>([&wake] { wake.start(); }, [&wake] { wake.stop(); });
}

ShareStack::~ShareStack() {
    // Work on the queues may still call back into the manager: stop it first, then let the
    // queues go (they finish what is running) before the manager does.
    if (parts_) {
        parts_->wake->stop();
        parts_->vpnMonitor->stop();
    }
}

ShareManager& ShareStack::manager() {
    return *parts_->manager;
}
Service& ShareStack::monitoring() {
    return *parts_->monitoring;
}
Service& ShareStack::vpnService() {
    return *parts_->vpnService;
}
Service& ShareStack::wakeService() {
    return *parts_->wakeService;
}
Observable<VPNMonitor::ServiceList>& ShareStack::vpnServices() {
    return parts_->vpnMonitor->services();
}

bool ShareStack::connectedShare(const std::string& networkURL) const {
    const auto url = parseUrl(networkURL);
    if (!url) return false;
    const std::string host = MountMatching::normalizeHost(url->host);
    std::string path = percentDecode(url->path);
    while (!path.empty() && path.front() == '/') path.erase(path.begin());
    if (const auto slash = path.find('/'); slash != std::string::npos) path.resize(slash);
    for (const SMBShare& share : parts_->manager->shares().get()) {
        if (share.status != MountStatus::mounted) continue;
        if (MountMatching::normalizeHost(MountMatching::shareHost(share)) != host) continue;
        std::string name = share.shareName;
        while (!name.empty() && name.front() == '/') name.erase(name.begin());
        if (asciiLowercase(name) == asciiLowercase(path)) return true;
    }
    return false;
}

}  // namespace kestrow
