#pragma once

#include <optional>

#include "app/service.h"
#include "support/executor.h"
#include "timemachine/backup_status_model.h"

namespace kestrow {

// Keeps the verdict current between settings-file changes: "3 hours ago" must become "4 hours
// ago", and a backup must turn stale, even when nothing is written.
class ProtectionRefresh final : public Service {
public:
    // The rings age once a minute; the verdict's texts no faster.
    static constexpr double kIntervalSeconds = 60.0;

    ProtectionRefresh(BackupStatusModel& model, Executor& mainExecutor)
        : model_(model), main_(mainExecutor) {}
    ~ProtectionRefresh() override { stop(); }

    void start() override;
    void stop() override;

private:
    void tick();

    BackupStatusModel& model_;
    Executor& main_;
    std::optional<TaskId> next_;
};

}  // namespace kestrow
