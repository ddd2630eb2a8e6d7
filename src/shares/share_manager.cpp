#include "shares/share_manager.h"

#include <algorithm>

#include "shares/mount_matching.h"

namespace kestrow {

ShareManager::ShareManager(ShareManagerParts parts)
    : parts_(std::move(parts)), ledger_(parts_.settings) {
    list_ = parts_.store.load();
    shares_.set(list_);
}

ShareManager::~ShareManager() {
    *alive_ = false;
    stopReconnectTimer();
    if (startupTask_) parts_.main.cancel(*startupTask_);
    {
        const std::lock_guard lock(mutex_);
        stop_.request_stop();
    }
    parts_.networkPath.stop();
    parts_.volumeEvents.stop();
}

void ShareManager::onMain(std::function<void()> task, double delay) {
    parts_.main.postAfter(delay, [alive = std::weak_ptr<bool>(alive_), task = std::move(task)] {
        const auto token = alive.lock();
        if (token && *token) task();
    });
}

void ShareManager::onQueue(Executor& queue, std::function<void()> task) {
    queue.post([alive = std::weak_ptr<bool>(alive_), task = std::move(task)] {
        const auto token = alive.lock();
        if (token && *token) task();
    });
}

// ---- lifecycle --------------------------------------------------------------------------------

void ShareManager::startMonitoring() {
    if (monitoring_) return;
    monitoring_ = true;
    {
        const std::lock_guard lock(mutex_);
        if (stop_.stop_requested()) stop_ = std::stop_source();
    }
    // Right after boot the network and the servers need a moment; a normal launch waits 1 s.
    const double delay = std::max(kPostBootAutoConnectDelay - parts_.clock.secondsSinceBoot(),
                                  kNormalLaunchAutoConnectDelay);
    startupReadyAt_ = parts_.clock.monotonic() + delay;
    parts_.networkPath.start([this](bool satisfied) { networkChanged(satisfied); });
    parts_.volumeEvents.start(
        [this](std::optional<std::string> mountedOn) { volumeUnmounted(std::move(mountedOn)); });
    const auto shares = list_;
    onQueue(parts_.statusQueue, [this, shares] {
        adoptEarlierMounts(shares, parts_.table, parts_.destinationURLs, ledger_, parts_.settings,
                           parts_.resolve, parts_.wording, parts_.log);
    });
    startReconnectTimer();
}

void ShareManager::stopMonitoring() {
    if (!monitoring_) return;
    monitoring_ = false;
    parts_.networkPath.stop();
    parts_.volumeEvents.stop();
    stopReconnectTimer();
    if (startupTask_) parts_.main.cancel(*startupTask_);
    startupTask_.reset();
    networkAvailable_ = false;
    const std::lock_guard lock(mutex_);
    // A mount attempt under way ends now rather than at its two-minute limit.
    stop_.request_stop();
}

void ShareManager::networkChanged(bool satisfied) {
    if (!monitoring_) return;
    const bool was = networkAvailable_.exchange(satisfied);
    if (satisfied) {
        if (!was) startReconnectTimer();
        return;
    }
    stopReconnectTimer();
    // Silently: no notification and the last error stays, since nothing failed.
    {
        const std::lock_guard lock(mutex_);
        for (SMBShare& share : list_) share.status = MountStatus::disconnected;
    }
    publish();
}

// ---- the reconnect ticker ---------------------------------------------------------------------

void ShareManager::startReconnectTimer() {
    if (!monitoring_ || tickerRunning_ || !networkAvailable_) return;
    const double now = parts_.clock.monotonic();
    if (startupReadyAt_ && *startupReadyAt_ > now) {
        if (!startupTask_) {
            startupTask_ = parts_.main.postAfter(*startupReadyAt_ - now, [this] {
                startupTask_.reset();
                startReconnectTimer();
            });
        }
        return;
    }
    tickerRunning_ = true;
    onMain([this] { mountAllAutoShares(); }, kInitialReconnectAttemptDelay);
    tickerTask_ = parts_.main.postAfter(kReconnectTickInterval, [this] { tick(); });
}

void ShareManager::stopReconnectTimer() {
    if (tickerTask_) parts_.main.cancel(*tickerTask_);
    tickerTask_.reset();
    tickerRunning_ = false;
}

void ShareManager::tick() {
    tickerTask_ = parts_.main.postAfter(kReconnectTickInterval, [this] { tick(); });
    if (!networkAvailable_) return;
    runAutoMountPass(true);
}

void ShareManager::mountAllAutoShares() {
    runAutoMountPass(false);
}

void ShareManager::runAutoMountPass(bool tickerStopCheck) {
    if (!networkAvailable_) return;
    onQueue(parts_.statusQueue, [this, tickerStopCheck] {
        auto table = parts_.table.current();
        if (!table) {
            parts_.log.once(passNote_, LogLevel::notice,
                            "kernel mount table unreadable; skipping this auto-mount pass");
            // An unreadable table leaves the ticker running: it is the way back.
            return;
        }
        passNote_.reset();
        onMain([this, tickerStopCheck, table = std::move(*table)] {
            if (!networkAvailable_) return;
            std::vector<SMBShare> toMount;
            {
                const std::lock_guard lock(mutex_);
                for (const SMBShare& share : list_) {
                    if (!share.autoMount || manuallyDisconnected_.contains(share.id)) continue;
                    if (pendingMounts_.contains(share.id)) continue;
                    if (MountMatching::isMounted(share, table)) continue;
                    toMount.push_back(share);
                }
            }
            for (const SMBShare& share : toMount) mount(share);
            applyStatuses(table);
            if (!tickerStopCheck || !tickerRunning_) return;
            bool allMounted = true;
            {
                const std::lock_guard lock(mutex_);
                for (const SMBShare& share : list_) {
                    if (!share.autoMount || manuallyDisconnected_.contains(share.id)) continue;
                    if (!MountMatching::isMounted(share, table)) allMounted = false;
                }
            }
            if (allMounted) stopReconnectTimer();
        });
    });
}

// ---- statuses ---------------------------------------------------------------------------------

void ShareManager::updateMountStatuses() {
    onQueue(parts_.statusQueue, [this] {
        auto table = parts_.table.current();
        if (!table) {
            parts_.log.once(statusNote_, LogLevel::notice,
                            "kernel mount table unreadable; share statuses left unchanged");
            return;
        }
        statusNote_.reset();
        onMain([this, table = std::move(*table)] { applyStatuses(table); });
    });
}

void ShareManager::applyStatuses(const std::vector<MountEntry>& table) {
    {
        const std::lock_guard lock(mutex_);
        for (SMBShare& share : list_) {
            if (MountMatching::isMounted(share, table)) {
                if (share.status != MountStatus::mounted) {
                    share.lastConnected = parts_.clock.now();
                    share.lastError.reset();
                }
                share.status = MountStatus::mounted;
            } else if (!pendingMounts_.contains(share.id)) {
                share.status = MountStatus::disconnected;
            }
        }
    }
    publish();
}

void ShareManager::volumeUnmounted(std::optional<std::string> mountedOn) {
    onQueue(parts_.statusQueue, [this, mountedOn = std::move(mountedOn)] {
        if (mountedOn) {
            ledger_.drop(*mountedOn);
        } else if (const auto table = parts_.table.current()) {
            ledger_.prune(*table, parts_.table.bootIdentity());
        }
    });
    onMain(
        [this] {
            onQueue(parts_.statusQueue, [this] {
                auto table = parts_.table.current();
                if (!table) {
                    parts_.log.once(statusNote_, LogLevel::notice,
                                    "kernel mount table unreadable; share statuses left unchanged");
                    return;
                }
                statusNote_.reset();
                onMain([this, table = std::move(*table)] {
                    applyStatuses(table);
                    bool anyDown = false;
                    {
                        const std::lock_guard lock(mutex_);
                        for (const SMBShare& share : list_) {
                            if (share.autoMount && !manuallyDisconnected_.contains(share.id) &&
                                !MountMatching::isMounted(share, table))
                                anyDown = true;
                        }
                    }
                    if (anyDown) onMain([this] { startReconnectTimer(); }, kUnmountReconnectDelay);
                });
            });
        },
        kUnmountStatusRefreshDelay);
}

// ---- the list ---------------------------------------------------------------------------------

void ShareManager::add(SMBShare share, const std::string& password) {
    share.status = MountStatus::disconnected;
    {
        const std::lock_guard lock(mutex_);
        list_.push_back(share);
    }
    parts_.passwords.savePassword(password, share.id);
    saveList();
    publish();
    if (share.autoMount) mount(share);
}

void ShareManager::update(SMBShare share, const std::string& password) {
    std::optional<SMBShare> old;
    {
        const std::lock_guard lock(mutex_);
        const auto it = std::find_if(list_.begin(), list_.end(),
                                     [&](const SMBShare& s) { return s.id == share.id; });
        if (it == list_.end()) return;
        old = *it;
        share.status = it->status;
        share.lastError = it->lastError;
        share.lastConnected = it->lastConnected;
        *it = share;
    }
    parts_.passwords.savePassword(password, share.id);
    saveList();
    publish();
    // The old mount goes first (when it is ours), then the edited share is mounted afresh.
    onQueue(parts_.unmountQueue, [this, old = *old, id = share.id] {
        if (mountedNow(old).value_or(false)) unmountOnQueue(old, false);
        onMain([this, id] {
            const auto current = find(id);
            if (current && current->autoMount) mount(*current);
        });
    });
}

void ShareManager::remove(const SMBShare& requested) {
    // A copy: `requested` may be an element of the published list, which changes below.
    const SMBShare share = requested;
    {
        const std::lock_guard lock(mutex_);
        std::erase_if(list_, [&](const SMBShare& s) { return s.id == share.id; });
        manuallyDisconnected_.erase(share.id);
        pendingMounts_.erase(share.id);
        extraRetryCount_.erase(share.id);
        failCount_.erase(share.id);
    }
    parts_.passwords.deletePassword(share.id);
    saveList();
    publish();
    onQueue(parts_.unmountQueue, [this, share] {
        if (mountedNow(share).value_or(false)) unmountOnQueue(share, false);
    });
}

void ShareManager::saveList() {
    std::vector<SMBShare> copy;
    {
        const std::lock_guard lock(mutex_);
        copy = list_;
    }
    // A failed write is silent; the list in memory stays as the user made it.
    parts_.store.save(copy);
}

void ShareManager::publish() {
    std::vector<SMBShare> copy;
    {
        const std::lock_guard lock(mutex_);
        copy = list_;
    }
    shares_.set(std::move(copy));
}

// ---- state shared with the queues -------------------------------------------------------------

std::optional<SMBShare> ShareManager::find(const std::string& id) const {
    const std::lock_guard lock(mutex_);
    const auto it =
        std::find_if(list_.begin(), list_.end(), [&](const SMBShare& s) { return s.id == id; });
    if (it == list_.end()) return std::nullopt;
    return *it;
}

bool ShareManager::shouldKeepRetrying(const std::string& id) const {
    if (!networkAvailable_) return false;
    const std::lock_guard lock(mutex_);
    if (stop_.stop_requested() || manuallyDisconnected_.contains(id)) return false;
    return std::any_of(list_.begin(), list_.end(), [&](const SMBShare& s) { return s.id == id; });
}

bool ShareManager::isManuallyDisconnected(const std::string& id) const {
    const std::lock_guard lock(mutex_);
    return manuallyDisconnected_.contains(id);
}

bool ShareManager::consumeExtraRetry(const std::string& id) {
    const std::lock_guard lock(mutex_);
    int& count = extraRetryCount_[id];
    if (count >= kMaxExtraRetriesAfterDisconnect) return false;
    ++count;
    return true;
}

void ShareManager::clearExtraRetry(const std::string& id) {
    const std::lock_guard lock(mutex_);
    extraRetryCount_.erase(id);
}

std::optional<bool> ShareManager::mountedNow(const SMBShare& share) {
    const auto table = parts_.table.current();
    if (!table) return std::nullopt;
    return MountMatching::isMounted(share, *table);
}

}  // namespace kestrow
