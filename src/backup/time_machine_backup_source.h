#pragma once

#include <functional>
#include <memory>

#include "backup/backup_source.h"
#include "timemachine/preferences_file.h"

namespace kestrow {

// Time Machine as one backup source: its settings file (read and followed by PreferencesFile) and
// its tool. Kept for the macOS edition, whose texts it keeps exactly.
class TimeMachineBackupSource final : public BackupSource {
public:
    struct Dependencies {
        TimeMachineTools& tools;
        FailureReasonLookup& failureReasons;
        // Makes the settings reader, which reads at once and follows the file; none in tests
        // that store the snapshot themselves.
        std::function<std::unique_ptr<PreferencesFile>()> makeSettingsReader;
        // Whether the settings file exists at all: Time Machine counts as set up only then.
        std::function<bool()> settingsFileExists;
    };

    explicit TimeMachineBackupSource(Dependencies dependencies);
    ~TimeMachineBackupSource() override;

    BackupSourceName name() const override {
        return {BackupSourceKind::timeMachine, "Time Machine"};
    }
    bool configured() override;
    void start() override;
    void stop() override;
    void liveStatus(std::function<void(LiveBackupReading)> done) override;
    void startBackup(std::function<void(StartBackupOutcome)> done) override;
    FailureReasonLookup& failureReasons() override { return d_.failureReasons; }

    // The settings reader while the source runs, for the first-run window's access step.
    PreferencesFile* settingsReader() const { return reader_.get(); }

    // What the tool's status answer says, leniently for the menu and strictly for decisions.
    static LiveBackupReading readingOf(const std::optional<std::string>& statusOutput);

private:
    Dependencies d_;
    std::unique_ptr<PreferencesFile> reader_;
    Signal<>::Connection processed_;
};

}  // namespace kestrow
