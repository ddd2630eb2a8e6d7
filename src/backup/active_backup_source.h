#pragma once

#include <optional>
#include <vector>

#include "backup/backup_source.h"
#include "timemachine/shared_preferences.h"

namespace kestrow {

// The one source that is watched: the first of the candidates that is set up (restic jobs, then
// Déjà Dup, then Time Machine). The choice is made again whenever any candidate changes and when
// asked, so adding the first restic job or setting up Déjà Dup takes over at once. With none set
// up there is no snapshot, and the verdict says that no backup is set up.
class ActiveBackupSource final : public BackupSource {
public:
    // `candidates` in order of preference; they must outlive this object.
    ActiveBackupSource(std::vector<BackupSource*> candidates, SharedPreferences& shared);
    ~ActiveBackupSource() override;
    ActiveBackupSource(const ActiveBackupSource&) = delete;
    ActiveBackupSource& operator=(const ActiveBackupSource&) = delete;

    // The active source's name; with none, an unnamed one, so that texts speak of "the backup".
    BackupSourceName name() const override;
    bool configured() override { return active_ != nullptr; }
    void start() override;
    void stop() override;
    void liveStatus(std::function<void(LiveBackupReading)> done) override;
    void startBackup(std::function<void(StartBackupOutcome)> done) override;
    FailureReasonLookup& failureReasons() override;

    std::optional<BackupSourceName> activeName() const;
    BackupSource* active() const { return active_; }
    // Chooses again now (the menu opened, the app was reopened).
    void recheck();

private:
    class NoReasons final : public FailureReasonLookup {
    public:
        void lookup(WallTime, std::int64_t,
                    std::function<void(FailureReasonAnswer)> done) override {
            done(FailureReasonAnswer{std::nullopt, true});
        }
    };

    void candidateChanged(BackupSource* candidate);
    BackupSource* choose() const;

    std::vector<BackupSource*> candidates_;
    SharedPreferences& shared_;
    std::vector<Signal<>::Connection> connections_;
    BackupSource* active_ = nullptr;
    bool running_ = false;
    bool choosing_ = false;
    NoReasons noReasons_;
};

}  // namespace kestrow
