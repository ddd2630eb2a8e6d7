#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/vpn_services.h"
#include "shares/vpn_service.h"
#include "support/executor.h"
#include "support/logger.h"
#include "support/observable.h"

namespace kestrow {

// Polls the system's VPN services, publishes them for the menu and the share editor, and runs an
// auto-mount pass when a VPN linked to a share connects. Reads happen on a worker (they block on
// the system bus); everything else on the main executor.
class VPNMonitor {
public:
    static constexpr double interval = 5.0;
    using ServiceList = std::optional<std::vector<VPNService>>;

    // `linkedIDs` (called on the main executor) gives the VPN ids the configured shares link to.
    VPNMonitor(VpnServices& source, Executor& worker, Executor& main, LogSink& log,
               std::function<std::vector<std::string>()> linkedIDs,
               std::function<void()> mountAllAutoShares);
    ~VPNMonitor();
    VPNMonitor(const VPNMonitor&) = delete;
    VPNMonitor& operator=(const VPNMonitor&) = delete;

    // Starts the polling once; later calls do nothing.
    void start();
    void stop();
    // One reading now, besides the polling.
    void refresh();
    // Absent until the first reading, and whenever the system's configuration is unreadable.
    Observable<ServiceList>& services() { return services_; }

private:
    void tick();
    void readAndApply();
    void apply(ServiceList current);

    VpnServices& source_;
    Executor& worker_;
    Executor& main_;
    Logger log_;
    std::function<std::vector<std::string>()> linkedIDs_;
    std::function<void()> mountAll_;
    Observable<ServiceList> services_;
    std::mutex lock_;  // the polling state, touched from both executors
    bool started_ = false;
    std::optional<TaskId> next_;
};

}  // namespace kestrow
