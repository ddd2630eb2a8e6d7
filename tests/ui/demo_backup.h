#pragma once

#include "app/settings/settings_store.h"
#include "platform/demo/simulated_desktop.h"
#include "support/recording_log_sink.h"
#include "support/temp_folder.h"
#include "support/time_machine_fakes.h"
#include "support/virtual_scheduler.h"
#include "timemachine/backup_status_model.h"

namespace kestrow::testing {

// The demo's simulated desktop behind a backup status model, in virtual time, with stores of its
// own: what the menu's views are shown over.
struct DemoBackup {
    TempFolder folder;
    RecordingLogSink sink;
    Logger log{sink, LogArea::general};
    VirtualScheduler scheduler;
    SettingsStore standard{folder / "standard.plist", log};
    SettingsStore sharedStore{folder / "shared.plist", log};
    RecordingWidgetHost widgets;
    SharedPreferences shared{sharedStore, widgets, log};
    SimulatedDesktop desktop{scheduler, scheduler.mainExecutor(), shared};
    BackupStatusModel model{{scheduler,
                             scheduler.mainExecutor(),
                             shared,
                             standard,
                             desktop,
                             desktop.probe(),
                             desktop.volumes(),
                             nullptr,
                             log,
                             BackupStatusModel::kMenuRingGeometry,
                             {},
                             true}};

    DemoBackup() { desktop.start(); }
};

}  // namespace kestrow::testing
