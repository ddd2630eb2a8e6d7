#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/settings/settings_store.h"
#include "backup/backup_source.h"
#include "menu/ring_model.h"
#include "platform/backup_diagnostics.h"
#include "platform/network_probe.h"
#include "platform/time_machine_tools.h"
#include "support/clock.h"
#include "support/executor.h"
#include "support/logger.h"
#include "support/observable.h"
#include "support/wording.h"
#include "timemachine/protection_notifier.h"
#include "timemachine/protection_state_evaluator.h"
#include "timemachine/shared_preferences.h"
#include "timemachine/time_machine_live_status.h"

namespace kestrow {

// Turns the Time Machine facts into what the rest of Kestrow shows: the verdict, the history,
// the rings and the live status, each published on its own so that a view wakes only for what it
// shows. Refreshes on demand, polls the live status while asked, and runs Back Up Now. Main
// thread only; every port answers on the main executor.
class BackupStatusModel {
public:
    struct Dependencies {
        Clock& clock;
        Executor& mainExecutor;
        SharedPreferences& shared;
        SettingsStore& standardStore;
        // What backs this machine up: it keeps the snapshot in `shared`, and answers the live
        // status, Back Up Now and the failure reasons.
        BackupSource& source;
        NetworkProbe& probe;
        BackupVolumes& volumes;
        ProtectionNotifier* notifier = nullptr;  // none for one-shot reports
        Logger log;
        RingGeometry ringGeometry = kMenuRingGeometry;
        // Whether one of the user's shares with this URL is connected now; until shares exist
        // nothing matches and the destination is probed.
        std::function<bool(const std::string& networkURL)> connectedShare;
        // The Linux edition says the platform's nouns in the texts it publishes; the Time Machine
        // source keeps its own texts exactly either way.
        bool linuxWording = false;
    };

    // Two weeks of history from heart to bark, recent days spread wide.
    static constexpr RingGeometry kMenuRingGeometry{14.0, 80.0, 0.55, 14.0 * 24.0};
    static constexpr double kLivePollSeconds = 2.0;
    static constexpr double kStartCheckSeconds = 1.5;
    static constexpr double kStartLimitSeconds = 9.0;
    static constexpr std::uint16_t kFileSharingPort = 445;

    explicit BackupStatusModel(Dependencies dependencies);
    ~BackupStatusModel();
    BackupStatusModel(const BackupStatusModel&) = delete;
    BackupStatusModel& operator=(const BackupStatusModel&) = delete;

    void refresh();
    // The menu's threshold setting: stores it, stores the snapshot again for the widgets, and
    // gives the verdict and the rings for the new threshold at once.
    void setProtectedThresholdHours(std::optional<double> hours);
    // The threshold the verdict uses now: the setting, or 24 hours.
    double protectedThresholdHours() const;
    void startLivePolling();
    void stopLivePolling();
    // Reads the live status once, publishes it and calls `done`.
    void refreshLiveStatus(std::function<void()> done = {});
    void startBackup();

    Observable<ProtectionVerdict> verdict;
    Observable<std::optional<WallTime>> lastSuccessful;
    Observable<std::optional<std::string>> destinationName;
    Observable<std::optional<bool>> isNetworkDestination;
    Observable<std::optional<bool>> destinationReachable;
    Observable<std::optional<bool>> backupVolumeAttached;
    Observable<std::vector<ProtectionStateEvaluator::HistoryEntry>> history;
    Observable<RingModel> rings;
    Observable<TimeMachineLiveStatus> live;
    // Seconds until the running backup ends, when its source estimates it.
    Observable<std::optional<double>> timeRemaining;
    Observable<std::optional<std::string>> startError;
    Observable<bool> starting{false};
    Observable<std::optional<std::string>> failureReason;
    Observable<std::optional<bool>> failureReasonReadable;
    Observable<std::optional<WallTime>> failureReasonAttempt;
    Observable<std::optional<WallTime>> oldestBackup;
    Observable<int> backupCount{0};
    // The active backup source; nothing while none is configured.
    Observable<std::optional<BackupSourceName>> source;

    // After every evaluation, when all of the above is up to date, whether or not the verdict
    // changed: what depends on the destination's other facts reads them then.
    Signal<> evaluated;

    // The destination the last refresh looked at.
    const std::optional<Destination>& destination() const { return destination_; }
    // Whether Time Machine backs up on its own schedule, as of the last refresh.
    std::optional<bool> automaticBackups() const { return automaticBackups_; }
    // Whether a reachability probe is under way.
    bool probing() const { return probeInFlight_; }

    // The host of an smb:// (or similar) URL; nothing when it names none.
    static std::optional<std::string> hostOf(const std::string& url);
    // The port to probe for an URL: the one it names ("sftp://host:2222"), else its scheme's
    // usual one; nothing for an unknown scheme, and the file-sharing port is probed.
    static std::optional<std::uint16_t> portOf(const std::string& url);

private:
    void rebuildRings(const Destination* destination, WallTime now, double thresholdHours);
    void refreshFailureReason(const Destination& destination);
    void evaluate(bool configured);
    void probeReachability(const Destination& destination);
    void pollOnce();
    void checkStarted(double acceptedAt);
    std::optional<bool> runningState() const;
    // The words for the source's own texts: the verdict's reasons and Back Up Now's errors.
    Wording sourceWording() const;
    Wording startWording() const;
    void applyReading(const LiveBackupReading& reading);
    template <typename F>
    std::function<void()> guarded(F f);

    Dependencies d_;
    Logger backUpNowLog_;
    std::optional<Destination> destination_;
    std::optional<bool> automaticBackups_;
    std::optional<bool> preferencesRunning_;  // from the stored snapshot, until the tool answers
    std::optional<std::optional<bool>> liveRunning_;  // the tool's strict answer, once it gave one
    std::optional<RingKey> ringKey_;
    std::unique_ptr<NetworkProbe::Handle> probe_;
    bool probeInFlight_ = false;
    std::optional<TaskId> pollTask_;
    bool polling_ = false;
    std::optional<WallTime> lookedUpAttempt_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace kestrow
