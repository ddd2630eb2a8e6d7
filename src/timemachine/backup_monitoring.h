#pragma once

#include "app/service.h"
#include "timemachine/backup_status_model.h"

namespace kestrow {

// Follows what Time Machine is doing now, for the progress line and for whatever must know
// whether a backup runs.
class BackupMonitoring final : public Service {
public:
    explicit BackupMonitoring(BackupStatusModel& model) : model_(model) {}
    void start() override { model_.startLivePolling(); }
    void stop() override { model_.stopLivePolling(); }

private:
    BackupStatusModel& model_;
};

}  // namespace kestrow
