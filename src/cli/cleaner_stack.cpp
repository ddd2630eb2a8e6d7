#include "cli/cleaner_stack.h"

#include "app/settings/settings_keys.h"

namespace kestrow {

CleanerStack::CleanerStack(Clock& clock, Executor& mainExecutor, SettingsStore& standardStore,
                           UserLocations folders, Logger log, bool demo,
                           const std::filesystem::path& demoFolder)
    : folders_(std::move(folders)) {
    if (demo) {
        demoCaches_ = std::make_unique<DemoCaches>(demoFolder);
        demoCaches_->seed();
        folders_ = demoCaches_->folders();
        // The demo opens with two cleaners on, so their rows, captions and estimate show.
        for (const std::string& key :
             {keys::maintenanceEnabled("npm"), std::string(keys::browserReclaimEnabled)}) {
            if (!standardStore.value(key)) standardStore.set(key, true);
        }
    }
    trash_ = std::make_unique<FreedesktopTrash>(folders_.dataHome);
    browsers_ = std::make_unique<BrowserCacheReclaimer>(BrowserCacheReclaimer::Dependencies{
        clock, mainExecutor, worker_, standardStore, processes_, *trash_, folders_, log});
    MaintenanceCleaner::Environment environment{
        [&clock] { return clock.now(); },
        standardStore,
        3600.0,
        MaintenanceCleaner::cleanersOnDisk(worker_, mainExecutor, folders_, processes_, *trash_),
        [this](std::function<void(BrowserResult)> done) { browsers_->reclaimNow(std::move(done)); },
        {},
        Wording::linux(std::nullopt)};
    developer_ = std::make_unique<MaintenanceCleaner>(std::move(environment), mainExecutor, log);
}

// The schedulers go first, so no pass is started on a worker that is already gone.
CleanerStack::~CleanerStack() {
    developer_.reset();
    browsers_.reset();
}

}  // namespace kestrow
