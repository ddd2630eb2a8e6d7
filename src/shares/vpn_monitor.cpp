#include "shares/vpn_monitor.h"

#include "shares/vpn_presentation.h"

namespace kestrow {

VPNMonitor::VPNMonitor(VpnServices& source, Executor& worker, Executor& main, LogSink& log,
                       std::function<std::vector<std::string>()> linkedIDs,
                       std::function<void()> mountAllAutoShares)
    : source_(source),
      worker_(worker),
      main_(main),
      log_(log, LogArea::general),
      linkedIDs_(std::move(linkedIDs)),
      mountAll_(std::move(mountAllAutoShares)) {}

VPNMonitor::~VPNMonitor() {
    stop();
}

void VPNMonitor::start() {
    std::lock_guard lock(lock_);
    if (started_) return;
    started_ = true;
    next_ = worker_.post([this] { tick(); });
}

void VPNMonitor::stop() {
    std::lock_guard lock(lock_);
    started_ = false;
    if (next_) worker_.cancel(*next_);
    next_.reset();
}

void VPNMonitor::refresh() {
    worker_.post([this] { readAndApply(); });
}

void VPNMonitor::tick() {
    {
        std::lock_guard lock(lock_);
        next_.reset();
        if (!started_) return;
    }
    readAndApply();
    std::lock_guard lock(lock_);
    if (started_) next_ = worker_.postAfter(interval, [this] { tick(); });
}

void VPNMonitor::readAndApply() {
    ServiceList current = source_.read();
    main_.post([this, current = std::move(current)]() mutable { apply(std::move(current)); });
}

void VPNMonitor::apply(ServiceList current) {
    // The comparison runs where the shares live, against the list the menu was last shown.
    const std::vector<std::string> linked = linkedIDs_ ? linkedIDs_() : std::vector<std::string>{};
    const auto connected = VPNPresentation::connectedTransitions(services_.get(), current, linked);
    for (const VPNService& service : connected)
        log_.info("VPN {} connected; auto-mount pass", service.name);
    if (!connected.empty() && mountAll_) mountAll_();
    services_.set(std::move(current));
}

}  // namespace kestrow
