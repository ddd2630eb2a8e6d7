// The share manager's mount and unmount paths: one attempt at a time on the mount queue, a
// bounded number of quick retries, and unmounts that only ever touch a mount Kestrow made.
#include <algorithm>

#include "shares/mount_matching.h"
#include "shares/share_manager.h"
#include "shares/share_url.h"

namespace kestrow {

void ShareManager::mount(const SMBShare& requested) {
    // `requested` may be an element of the published list, which the publish below replaces.
    const std::string id = requested.id;
    {
        const std::lock_guard lock(mutex_);
        // An explicit mount overrides the user's earlier disconnect.
        manuallyDisconnected_.erase(id);
        const auto it =
            std::find_if(list_.begin(), list_.end(), [&](const SMBShare& s) { return s.id == id; });
        if (it == list_.end()) return;
        if (!pendingMounts_.insert(id).second) return;
        it->status = MountStatus::connecting;
        it->lastError.reset();
    }
    publish();
    // The keyring answers on the main thread, so the password is read before the attempt is
    // queued; a keyring that fails or is locked counts as no password.
    parts_.passwords.getPassword(
        id, [this, alive = std::weak_ptr<bool>(alive_), id](std::optional<std::string> password) {
            const auto token = alive.lock();
            if (!token || !*token) return;
            parts_.mountQueue.post([this, alive, id, password = std::move(password)] {
                const auto stillAlive = alive.lock();
                if (stillAlive && *stillAlive) performMount(id, password);
            });
        });
}

void ShareManager::performMount(const std::string& id, const std::optional<std::string>& password) {
    const auto share = find(id);
    if (!share || !shouldKeepRetrying(id)) {
        onMain([this, id] { finishMount(id, Outcome::abandoned, std::nullopt); });
        return;
    }
    const auto host = parts_.availability.waitForConnectionAvailability(
        *share, [this, id] { return shouldKeepRetrying(id); });
    if (!host) {
        if (!shouldKeepRetrying(id)) {
            onMain([this, id] { finishMount(id, Outcome::abandoned, std::nullopt); });
            return;
        }
        std::string text;
        if (parts_.availability.localNetworkDenied()) {
            text = parts_.wording(
                "Needs Local Network access. Allow Kestrow in System Settings › Privacy & "
                "Security › Local Network.");
        } else if (share->connectionProtocol == ShareProtocol::smb) {
            text = "Host aktuell nicht erreichbar (SMB Port 445).";
        } else {
            text = "Host aktuell nicht erreichbar (WebDAV Port 80/443).";
        }
        onMain([this, id, text] { finishMount(id, Outcome::failed, text); });
        return;
    }

    const std::string secret = password.value_or("");
    const MountUrl withPassword = mountUrl(*share, secret, *host);
    MountRequest request;
    request.protocol = share->connectionProtocol;
    // The URL itself never carries the password: that goes to the mount operation in memory.
    request.url = mountUrl(*share, "", *host).url;
    request.username = share->username;
    request.password = share->username.empty() ? std::string() : secret;
    request.interactive = withPassword.interactive;
    request.attemptSeconds = request.interactive ? kInteractiveAttemptTimeout : kAttemptTimeout;
    request.callSeconds = request.interactive ? kInteractiveCallTimeout : kCallTimeout;

    if (!shouldKeepRetrying(id)) {
        onMain([this, id] { finishMount(id, Outcome::abandoned, std::nullopt); });
        return;
    }
    std::stop_token stop;
    {
        const std::lock_guard lock(mutex_);
        stop = stop_.get_token();
    }
    const auto before = parts_.table.current();
    const MountCallResult result = parts_.mounter.mount(
        request, [this, &share] { return mountedNow(*share).value_or(false); }, stop);
    const bool mounted = waitUntilMounted(*share, stop);
    if (mounted) {
        const auto after = parts_.table.current();
        const auto path = MountOwnership::mountCreatedByCall(
            before, after, [&](const MountEntry& e) { return MountMatching::matches(*share, e); },
            parts_.table.volumesRoot());
        const bool recorded =
            path && ledger_.recordNewMount(0, *path, after, parts_.table.bootIdentity());
        if (!recorded) {
            parts_.log.notice(
                "{} is connected but not recorded as Kestrow's own (it was already mounted, or "
                "the mount table could not say); Disconnect will leave it alone",
                share->name);
        }
        onMain([this, id] { finishMount(id, Outcome::mounted, std::nullopt); });
        return;
    }
    if (!shouldKeepRetrying(id)) {
        onMain([this, id] { finishMount(id, Outcome::abandoned, std::nullopt); });
        return;
    }
    onMain([this, id, error = result.bridgeError] { finishMount(id, Outcome::failed, error); });
}

bool ShareManager::waitUntilMounted(const SMBShare& share, std::stop_token stop) {
    const double deadline = parts_.clock.monotonic() + kPostMountVerifyTimeout;
    while (true) {
        if (mountedNow(share).value_or(false)) return true;
        if (parts_.clock.monotonic() >= deadline) return false;
        if (!parts_.clock.sleep(kMountTablePoll, stop)) return false;
    }
}

void ShareManager::finishMount(const std::string& id, Outcome outcome,
                               std::optional<std::string> error) {
    std::optional<std::string> connectedName;
    {
        const std::lock_guard lock(mutex_);
        pendingMounts_.erase(id);
        const auto it =
            std::find_if(list_.begin(), list_.end(), [&](const SMBShare& s) { return s.id == id; });
        if (outcome != Outcome::failed) extraRetryCount_.erase(id);
        if (outcome == Outcome::failed) ++failCount_[id];
        if (it == list_.end()) return;
        switch (outcome) {
            case Outcome::mounted:
                it->status = MountStatus::mounted;
                it->lastConnected = parts_.clock.now();
                it->lastError.reset();
                connectedName = it->name;
                break;
            case Outcome::failed:
                it->status = MountStatus::disconnected;
                it->lastError = std::move(error);
                break;
            case Outcome::abandoned:
                it->status = MountStatus::disconnected;
                break;
        }
    }
    publish();
    if (connectedName) {
        parts_.notifications.post("share-connected-" + id, "Connected",
                                  *connectedName + " successfully connected.");
    }
    if (outcome == Outcome::failed) scheduleOneExtraRetryIfNeeded(id, kExtraRetryDelay);
}

void ShareManager::scheduleOneExtraRetryIfNeeded(const std::string& id, double delay) {
    if (!consumeExtraRetry(id)) return;
    onMain(
        [this, id] {
            const auto share = find(id);
            if (!networkAvailable_ || !share || !share->autoMount || isManuallyDisconnected(id))
                return;
            onQueue(parts_.statusQueue, [this, share = *share] {
                if (mountedNow(share) != std::optional<bool>(false)) return;
                onMain([this, id = share.id] {
                    const auto current = find(id);
                    if (networkAvailable_ && current && current->autoMount &&
                        !isManuallyDisconnected(id))
                        mount(*current);
                });
            });
        },
        delay);
}

// ---- unmounting -------------------------------------------------------------------------------

MountOwnership::Verdict ShareManager::ownedMountVerdict(const SMBShare& share) {
    const auto table = parts_.table.current();
    const std::int64_t boot = parts_.table.bootIdentity();
    if (table) ledger_.prune(*table, boot);
    const auto records = ledger_.load();
    const auto urls = parts_.destinationURLs ? parts_.destinationURLs() : std::nullopt;
    return MountOwnership::verdict(share, table, records, boot,
                                   urls.value_or(std::vector<std::string>{}), parts_.resolve,
                                   parts_.table.volumesRoot());
}

void ShareManager::unmount(const SMBShare& share) {
    onQueue(parts_.unmountQueue, [this, share] {
        const auto verdict = ownedMountVerdict(share);
        onMain([this, share, verdict] {
            if (verdict.kind == MountOwnership::Verdict::Kind::leftAlone) {
                leaveMountAlone(share, verdict.reason);
                return;
            }
            {
                const std::lock_guard lock(mutex_);
                manuallyDisconnected_.insert(share.id);
                pendingMounts_.erase(share.id);
                extraRetryCount_.erase(share.id);
                failCount_.erase(share.id);
            }
            onQueue(parts_.unmountQueue, [this, share] { unmountOnQueue(share, true); });
        });
    });
}

void ShareManager::unmountOnQueue(const SMBShare& share, bool userAsked) {
    const auto mounted = mountedNow(share);
    if (mounted != std::optional<bool>(false)) {
        // The table may have changed since the first verdict: ask again, and only an owned
        // mount is ever touched.
        const auto verdict = ownedMountVerdict(share);
        if (verdict.kind == MountOwnership::Verdict::Kind::leftAlone) {
            onMain([this, share, reason = verdict.reason] { leaveMountAlone(share, reason); });
            return;
        }
        if (verdict.kind == MountOwnership::Verdict::Kind::owned) {
            std::string error;
            if (parts_.mounter.unmount(verdict.path, &error)) {
                parts_.clock.sleep(kUnmountSettlePause);
            } else {
                // Still mounted: the status comes from the table rather than from the wish.
                parts_.log.error("unmount failed for {}: {}", verdict.path, error);
                if (userAsked) onMain([this] { updateMountStatuses(); });
                return;
            }
        }
    }
    if (!userAsked) return;
    onMain([this, id = share.id] { markDisconnected(id, true); });
}

void ShareManager::markDisconnected(const std::string& id, bool clearError) {
    {
        const std::lock_guard lock(mutex_);
        const auto it =
            std::find_if(list_.begin(), list_.end(), [&](const SMBShare& s) { return s.id == id; });
        if (it == list_.end()) return;
        it->status = MountStatus::disconnected;
        if (clearError) it->lastError.reset();
    }
    publish();
}

void ShareManager::leaveMountAlone(const SMBShare& share, MountOwnership::Reason reason) {
    const std::string text = MountOwnership::reasonText(reason, parts_.wording);
    parts_.log.notice("{} is not unmounted: {}", share.name, text);
    {
        const std::lock_guard lock(mutex_);
        const auto it = std::find_if(list_.begin(), list_.end(),
                                     [&](const SMBShare& s) { return s.id == share.id; });
        if (it != list_.end()) it->lastError = text;
    }
    publish();
    parts_.notifications.post("share-left-alone-" + share.id, share.name, text);
}

}  // namespace kestrow
