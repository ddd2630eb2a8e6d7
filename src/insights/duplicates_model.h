#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <vector>

#include "app/settings/settings_store.h"
#include "insights/duplicate_finder.h"
#include "insights/duplicate_group.h"
#include "insights/duplicate_roots.h"
#include "platform/locations.h"
#include "platform/trash.h"
#include "support/executor.h"
#include "support/observable.h"

namespace kestrow {

// What the duplicates window shows and does. Lives on the main thread: scans and moves to the
// Trash run on the worker, and their results are published back on the main executor. A newer
// scan stops an older one and makes its result moot; so do cancel() and the model's end.
class DuplicatesModel {
public:
    struct Services {
        SettingsStore& standard;
        Executor& main;
        Executor& worker;
        Trash& trash;  // used on the worker
        UserLocations locations;
        Logger log;
        DuplicateFinder::Options finder;
        // Whether local snapshots hold on to deleted files' blocks; nothing on Linux says.
        std::optional<bool> snapshotPresent;
    };

    explicit DuplicatesModel(Services services);
    ~DuplicatesModel();
    DuplicatesModel(const DuplicatesModel&) = delete;
    DuplicatesModel& operator=(const DuplicatesModel&) = delete;

    Observable<std::vector<DuplicateGroup>> groups;
    Observable<std::set<std::string>> selected;  // paths
    Observable<bool> scanning{false};
    Observable<bool> trashing{false};
    Observable<std::string> status;
    Observable<std::optional<bool>> snapshotPresent;
    Observable<std::vector<std::string>> extraFolders;  // kept in "duplicateFinderFolders"

    void scan();
    // Stops a running scan within moments; what it found is dropped.
    void cancel();
    // Makes `chosen` the selection within `group`; the other groups' selection stays.
    void apply(const DuplicateGroup& group, const std::set<std::string>& chosen);
    void setSelected(const std::string& path, bool on);
    void trashSelected();

    void addFolder(const std::string& folder);
    void removeFolder(const std::string& folder);

    DuplicateRoots roots() const;
    // The known gains of every group added up; a group whose gain is not known adds nothing.
    std::int64_t totalGain() const;
    KeepPreference keepPreference() const;

    // "3 groups of duplicates · 12.5 MB to gain", or "No duplicates of 1 MB or more".
    static std::string summaryLine(const std::vector<DuplicateGroup>& groups);
    // Every copy but the one to keep, in every group.
    static std::set<std::string> proposals(const std::vector<DuplicateGroup>& groups,
                                           const KeepPreference& preference);

private:
    void storeFolders(std::vector<std::string> folders);

    Services s_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
    int scanToken_ = 0;
    std::stop_source scanStop_;
};

}  // namespace kestrow
