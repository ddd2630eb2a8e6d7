#pragma once

#include <memory>

#include "app/settings/settings_store.h"
#include "cleaners/browser_cache_reclaimer.h"
#include "cleaners/maintenance_cleaner.h"
#include "platform/demo/demo_caches.h"
#include "platform/linux/freedesktop_trash.h"
#include "platform/linux/proc_running_processes.h"
#include "platform/locations.h"
#include "support/serial_queue.h"

namespace kestrow {

// The two cleaner schedulers wired to the real Trash and process table, with their passes on a
// worker thread. The agent and `kestrow clean` build the same stack, so a manual free-up from
// the command line follows exactly the menu's rules.
class CleanerStack {
public:
    // With `demo`, the cleaners work on the demo's pretend home and Trash inside `demoFolder`.
    CleanerStack(Clock& clock, Executor& mainExecutor, SettingsStore& standardStore,
                 UserLocations folders, Logger log, bool demo = false,
                 const std::filesystem::path& demoFolder = {});
    ~CleanerStack();
    CleanerStack(const CleanerStack&) = delete;
    CleanerStack& operator=(const CleanerStack&) = delete;

    BrowserCacheReclaimer& browsers() { return *browsers_; }
    MaintenanceCleaner& developer() { return *developer_; }
    const UserLocations& folders() const { return folders_; }
    Executor& worker() { return worker_; }

    // Linux has no Xcode.
    static constexpr bool kXcodeInstalled = false;

private:
    UserLocations folders_;
    std::unique_ptr<DemoCaches> demoCaches_;
    std::unique_ptr<FreedesktopTrash> trash_;
    ProcRunningProcesses processes_;
    SerialQueue worker_{"Cleaner passes"};
    std::unique_ptr<BrowserCacheReclaimer> browsers_;
    std::unique_ptr<MaintenanceCleaner> developer_;
};

}  // namespace kestrow
