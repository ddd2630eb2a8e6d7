#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "app/preferences_file_handle.h"
#include "platform/file_watcher.h"
#include "platform/time_machine_tools.h"
#include "support/clock.h"
#include "support/environment.h"
#include "support/executor.h"
#include "support/logger.h"
#include "support/observable.h"
#include "support/signal.h"
#include "timemachine/shared_preferences.h"

namespace kestrow {

// Keeps the shared store's Time Machine snapshot in step with the settings file: reads it when
// it can be read, again after every burst of changes, and removes the snapshot when it cannot.
// On Linux "access" is simply whether the file can be opened for reading. Main thread only.
class PreferencesFile final : public PreferencesFileHandle {
public:
    struct Dependencies {
        std::filesystem::path file;
        bool demo = false;
        Clock& clock;
        FileWatcher& watcher;
        TimeMachineTools& tools;
        SharedPreferences& shared;
        Logger log;
    };

    // Time Machine rewrites its settings several times in a burst; one read per burst suffices.
    static constexpr double kBurstSeconds = 1.0;

    // KESTROW_TM_PLIST, else where macOS keeps the file.
    static std::filesystem::path location(const EnvironmentLookup& environment);

    explicit PreferencesFile(Dependencies dependencies);
    ~PreferencesFile() override;
    PreferencesFile(const PreferencesFile&) = delete;
    PreferencesFile& operator=(const PreferencesFile&) = delete;

    bool hasAccess() const override { return hasAccess_.get(); }
    bool demo() const override { return d_.demo; }
    void recheckAccess() override { timeMachineAccessChanged(); }

    Observable<bool>& hasAccessState() { return hasAccess_; }
    Observable<std::optional<std::string>>& accessProblem() { return accessProblem_; }
    const std::filesystem::path& file() const { return d_.file; }

    // Reads the file once and stores the snapshot, or removes it when there is none.
    void process();
    // Asks Time Machine whether a backup runs, records that, then reads the file.
    void processWithLiveRunningState();
    void stopReading(std::optional<std::string> problem);
    // The user granted or withdrew access somewhere else in the app.
    void timeMachineAccessChanged();

    // After every read, whether or not it gave a snapshot.
    Signal<> processed;

private:
    void applyAccess();
    void startObservingForChanges();
    void fileChanged();

    Dependencies d_;
    Observable<bool> hasAccess_{false};
    Observable<std::optional<std::string>> accessProblem_;
    std::unique_ptr<FileWatcher::Watch> watch_;
    std::optional<double> lastChange_;  // monotonic seconds of the last change acted on
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace kestrow
