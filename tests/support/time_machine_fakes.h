#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "app/settings/settings_store.h"
#include "backup/time_machine_backup_source.h"
#include "platform/backup_diagnostics.h"
#include "platform/network_probe.h"
#include "platform/notifications.h"
#include "platform/time_machine_tools.h"
#include "platform/widgets.h"
#include "support/recording_log_sink.h"
#include "support/temp_folder.h"
#include "support/virtual_scheduler.h"
#include "timemachine/backup_status_model.h"
#include "timemachine/protection_notifier.h"
#include "timemachine/shared_preferences.h"

namespace kestrow::testing {

// What "tmutil status -X" prints, as an XML plist.
std::string statusOutput(bool running, std::optional<std::string> phase = std::nullopt,
                         std::optional<double> percent = std::nullopt);

// The tool answers on the executor `answerDelay` virtual seconds after each call, as the real
// one answers once its process has ended. The status answer is taken when the call is made.
class FakeTimeMachineTools final : public TimeMachineTools {
public:
    FakeTimeMachineTools(Executor& executor, Clock& clock) : executor_(executor), clock_(clock) {}

    void status(std::function<void(std::optional<std::string>)> done) override;
    void startBackup(std::function<void(StartBackupOutcome)> done) override;

    std::optional<std::string> statusAnswer = statusOutput(false);
    StartBackupOutcome startAnswer{StartBackupOutcome::Accepted{}};
    double answerDelay = 0.0;

    std::vector<double> statusCalls;  // monotonic times of the calls
    int startCalls = 0;

private:
    Executor& executor_;
    Clock& clock_;
};

// Keeps every probe pending until the test answers it. Dropping a handle cancels its probe, and
// a cancelled probe never calls back, as with a real connection attempt that was torn down.
class FakeNetworkProbe final : public NetworkProbe {
public:
    struct Probe {
        std::string host;
        std::uint16_t port = 0;
        std::function<void(bool)> done;
        bool cancelled = false;
        bool answered = false;
    };

    std::unique_ptr<Handle> connect(const std::string& host, std::uint16_t port,
                                    std::function<void(bool reachable)> done) override;

    // Delivers the answer of probe `index`; false when it was cancelled or already answered.
    bool answer(std::size_t index, bool reachable);
    std::size_t count() const { return probes_->size(); }
    const Probe& probe(std::size_t index) const { return probes_->at(index); }

private:
    class FakeHandle;
    std::shared_ptr<std::vector<Probe>> probes_ = std::make_shared<std::vector<Probe>>();
};

// Keeps each lookup pending until the test answers it.
class FakeFailureReasonLookup final : public FailureReasonLookup {
public:
    struct Lookup {
        WallTime attempt;
        std::int64_t lastResult = 0;
        std::function<void(FailureReasonAnswer)> done;
    };

    void lookup(WallTime attempt, std::int64_t lastResult,
                std::function<void(FailureReasonAnswer)> done) override {
        lookups.push_back({attempt, lastResult, std::move(done)});
    }
    void answer(std::size_t index, FailureReasonAnswer answer) {
        lookups.at(index).done(std::move(answer));
    }

    std::vector<Lookup> lookups;
};

class FakeBackupVolumes final : public BackupVolumes {
public:
    std::optional<bool> attached(const Destination&) override { return answer; }
    std::optional<bool> answer;
};

class RecordingWidgetHost final : public WidgetHost {
public:
    std::vector<Process> runningWidgetProcesses() const override { return {}; }
    void terminate(int) override {}
    std::optional<WallTime> appBinaryReplaced() const override { return std::nullopt; }
    void reloadTimelines(std::string_view kind) override { reloads.emplace_back(kind); }
    std::vector<std::string> reloads;
};

class RecordingUserNotifications final : public UserNotifications {
public:
    struct Post {
        std::string identifier;
        std::string title;
        std::string body;
    };
    void requestAuthorization(std::function<void(bool)> done) override { done(true); }
    void post(std::string identifier, std::string title, std::string body) override {
        posts.push_back({std::move(identifier), std::move(title), std::move(body)});
    }
    std::vector<Post> posts;
};

// A BackupStatusModel in virtual time over real stores in a temp folder, with the fakes above
// for everything that would reach the system. The model is declared last so that it goes before
// the ports it holds.
struct BackupStatusRig {
    BackupStatusRig();

    WallTime hoursAgo(double hours) const { return addSeconds(scheduler.now(), -hours * 3600.0); }
    // Stores the Time Machine snapshot as the settings reader would.
    void seed(std::vector<Destination> destinations, std::optional<Destination> lastUsed);
    const std::vector<std::string>& reasons() const { return model.verdict.get().reasons; }
    bool hasReason(std::string_view reason) const;

    VirtualScheduler scheduler;
    TempFolder folder;
    RecordingLogSink sink;
    SettingsStore standardStore;
    SettingsStore sharedStore;
    RecordingWidgetHost widgets;
    SharedPreferences shared;
    FakeTimeMachineTools tools;
    FakeFailureReasonLookup failureReasons;
    TimeMachineBackupSource source;
    FakeNetworkProbe probe;
    FakeBackupVolumes volumes;
    RecordingUserNotifications notifications;
    ProtectionNotifier notifier;
    std::set<std::string> connectedShares;
    BackupStatusModel model;
};

}  // namespace kestrow::testing
