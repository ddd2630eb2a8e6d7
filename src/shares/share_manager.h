#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <vector>

#include "app/settings/settings_store.h"
#include "platform/mount_table.h"
#include "platform/network_path.h"
#include "platform/notifications.h"
#include "platform/share_mounter.h"
#include "platform/volume_events.h"
#include "shares/connection_availability.h"
#include "shares/mount_adoption.h"
#include "shares/mount_ledger.h"
#include "shares/mount_ownership.h"
#include "shares/share_control.h"
#include "shares/share_passwords.h"
#include "shares/share_store.h"
#include "support/clock.h"
#include "support/executor.h"
#include "support/logger.h"
#include "support/wording.h"

namespace kestrow {

struct ShareManagerParts {
    Clock& clock;
    Executor& main;
    // Mount attempts, one after another; each may block for up to two minutes.
    Executor& mountQueue;
    Executor& unmountQueue;
    // Mount-table readings for the passes and status refreshes: the table is never read on the
    // main thread, and a pass must not wait behind a mount attempt that waits for a password.
    Executor& statusQueue;
    MountTable& table;
    ShareMounter& mounter;
    ConnectionAvailability& availability;
    NetworkPathMonitor& networkPath;
    VolumeEvents& volumeEvents;
    SharePasswords& passwords;
    UserNotifications& notifications;
    SettingsStore& settings;  // the standard store: the ledger and the adoption flag
    ShareStore& store;
    Logger log;  // LogArea::mounting
    DestinationURLs destinationURLs;
    MountOwnership::Resolve resolve;
    Wording wording;
};

// The one owner of the configured shares: keeps the auto-mount shares connected (at start, on a
// short ticker, after a drop, when the network comes back) with bounded retries, and
// disconnects only what it connected itself in this boot. Called on the main thread; publishes
// on the main thread.
class ShareManager final : public ShareControl {
public:
    // Timing, in seconds.
    static constexpr double kUnmountStatusRefreshDelay = 1.0;
    static constexpr double kUnmountReconnectDelay = 1.0;
    static constexpr double kInitialReconnectAttemptDelay = 1.0;
    static constexpr double kReconnectTickInterval = 1.5;
    static constexpr double kPostBootAutoConnectDelay = 15.0;
    static constexpr double kNormalLaunchAutoConnectDelay = 1.0;
    static constexpr double kAttemptTimeout = 2.0;
    static constexpr double kInteractiveAttemptTimeout = 120.0;
    static constexpr double kCallTimeout = 10.0;
    static constexpr double kInteractiveCallTimeout = 125.0;
    static constexpr double kPostMountVerifyTimeout = 5.0;
    static constexpr double kMountTablePoll = 0.25;
    static constexpr double kExtraRetryDelay = 0.8;
    static constexpr double kUnmountSettlePause = 0.3;
    static constexpr int kMaxExtraRetriesAfterDisconnect = 3;

    explicit ShareManager(ShareManagerParts parts);
    ~ShareManager() override;
    ShareManager(const ShareManager&) = delete;
    ShareManager& operator=(const ShareManager&) = delete;

    Observable<std::vector<SMBShare>>& shares() override { return shares_; }
    void add(SMBShare share, const std::string& password) override;
    void update(SMBShare share, const std::string& password) override;
    void remove(const SMBShare& share) override;
    void mount(const SMBShare& share) override;
    void unmount(const SMBShare& share) override;

    void startMonitoring();
    void stopMonitoring();
    // The auto-mount pass: wake, a VPN connecting and the ticker call it.
    void mountAllAutoShares();
    void updateMountStatuses();

    // Blocking, off the main thread: may this share's mount be unmounted?
    MountOwnership::Verdict ownedMountVerdict(const SMBShare& share);

private:
    enum class Outcome { mounted, failed, abandoned };

    // Main thread.
    void startReconnectTimer();
    void stopReconnectTimer();
    void tick();
    void networkChanged(bool satisfied);
    void volumeUnmounted(std::optional<std::string> mountedOn);
    void runAutoMountPass(bool tickerStopCheck);
    void applyStatuses(const std::vector<MountEntry>& table);
    void finishMount(const std::string& id, Outcome outcome, std::optional<std::string> error);
    void scheduleOneExtraRetryIfNeeded(const std::string& id, double delay);
    void leaveMountAlone(const SMBShare& share, MountOwnership::Reason reason);
    void markDisconnected(const std::string& id, bool clearError);
    void publish();
    void saveList();

    // Mount queue.
    void performMount(const std::string& id, const std::optional<std::string>& password);
    bool waitUntilMounted(const SMBShare& share, std::stop_token stop);
    // Unmount queue: unmounts only an owned mount; false when it left the mount alone.
    void unmountOnQueue(const SMBShare& share, bool userAsked);

    // Any thread.
    std::optional<SMBShare> find(const std::string& id) const;
    bool shouldKeepRetrying(const std::string& id) const;
    bool isManuallyDisconnected(const std::string& id) const;
    bool consumeExtraRetry(const std::string& id);
    void clearExtraRetry(const std::string& id);
    std::optional<bool> mountedNow(const SMBShare& share);
    // Runs `task` on the main executor unless the manager is gone by then.
    void onMain(std::function<void()> task, double delay = 0.0);
    // The same on one of the queues. The app drains its queues before the manager goes.
    void onQueue(Executor& queue, std::function<void()> task);

    ShareManagerParts parts_;
    MountLedger ledger_;
    Observable<std::vector<SMBShare>> shares_;

    // The list with live states, the sets and maps below: one lock.
    mutable std::mutex mutex_;
    std::vector<SMBShare> list_;
    std::set<std::string> manuallyDisconnected_;
    std::set<std::string> pendingMounts_;
    std::map<std::string, int> extraRetryCount_;
    std::map<std::string, int> failCount_;
    std::stop_source stop_;

    std::atomic<bool> networkAvailable_{false};
    // Main thread only.
    bool monitoring_ = false;
    bool tickerRunning_ = false;
    std::optional<TaskId> tickerTask_;
    std::optional<double> startupReadyAt_;  // monotonic seconds
    std::optional<TaskId> startupTask_;
    OnceLog passNote_;
    OnceLog statusNote_;

    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace kestrow
