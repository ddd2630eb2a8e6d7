#pragma once

#include "app/settings/settings_store.h"
#include "platform/demo/simulated_mac.h"
#include "support/recording_log_sink.h"
#include "support/temp_folder.h"
#include "support/time_machine_fakes.h"
#include "support/virtual_scheduler.h"
#include "timemachine/backup_status_model.h"

namespace kestrow::testing {

// The demo's simulated Mac behind a backup status model, in virtual time, with stores of its own:
// what the menu's views are shown over.
struct DemoBackup {
    TempFolder folder;
    RecordingLogSink sink;
    Logger log{sink, LogArea::general};
    VirtualScheduler scheduler;
    SettingsStore standard{folder / "standard.plist", log};
    SettingsStore sharedStore{folder / "shared.plist", log};
    RecordingWidgetHost widgets;
    SharedPreferences shared{sharedStore, widgets, log};
    SimulatedMac mac{scheduler, scheduler.mainExecutor()};
    BackupStatusModel model{{scheduler,
                             scheduler.mainExecutor(),
                             shared,
                             standard,
                             mac.tools(),
                             mac.failureReasons(),
                             mac.probe(),
                             mac.volumes(),
                             nullptr,
                             log,
                             BackupStatusModel::kMenuRingGeometry,
                             {}}};

    DemoBackup() { shared.store(mac.preferences()); }
};

}  // namespace kestrow::testing
