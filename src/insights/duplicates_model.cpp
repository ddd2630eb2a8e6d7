#include "insights/duplicates_model.h"

#include <algorithm>

#include "app/settings/settings_keys.h"
#include "app/settings/standard_settings.h"
#include "insights/duplicate_trash.h"
#include "support/byte_count_format.h"

namespace kestrow {

DuplicatesModel::DuplicatesModel(Services services) : s_(std::move(services)) {
    // What is in the Trash is on its way out already: never a copy to keep or propose.
    s_.finder.skipFolders.push_back(s_.locations.dataHome / "Trash");
    snapshotPresent.set(s_.snapshotPresent);
    extraFolders.set(StandardSettings(s_.standard).duplicateFinderFolders());
}

DuplicatesModel::~DuplicatesModel() {
    scanStop_.request_stop();
}

DuplicateRoots DuplicatesModel::roots() const {
    return DuplicateRoots::resolve(s_.locations, extraFolders.get());
}

KeepPreference DuplicatesModel::keepPreference() const {
    return roots().keepPreference();
}

std::int64_t DuplicatesModel::totalGain() const {
    std::int64_t total = 0;
    for (const auto& group : groups.get()) total += reclaimable(group).value_or(0);
    return total;
}

std::string DuplicatesModel::summaryLine(const std::vector<DuplicateGroup>& found) {
    if (found.empty()) return duplicate_text::kNone;
    std::int64_t gain = 0;
    for (const auto& group : found) gain += reclaimable(group).value_or(0);
    std::string line = std::to_string(found.size()) +
                       (found.size() == 1 ? " group of duplicates" : " groups of duplicates");
    if (gain > 0) line += " \u00b7 " + formatByteCount(gain) + " to gain";
    return line;
}

std::set<std::string> DuplicatesModel::proposals(const std::vector<DuplicateGroup>& found,
                                                 const KeepPreference& preference) {
    std::set<std::string> paths;
    for (const auto& group : found) {
        const auto order = keepOrder(group, preference);
        for (std::size_t i = 1; i < order.size(); ++i) paths.insert(order[i].path);
    }
    return paths;
}

void DuplicatesModel::scan() {
    scanStop_.request_stop();
    scanStop_ = std::stop_source();
    const int token = ++scanToken_;
    scanning.set(true);
    status.set("Scanning\u2026");
    const auto folders = roots().all();
    DuplicateFinder::Options options = s_.finder;
    options.stop = scanStop_.get_token();
    s_.worker.post([this, alive = std::weak_ptr<bool>(alive_), token, folders,
                    finder = DuplicateFinder(s_.log, options), stop = options.stop,
                    &main = s_.main] {
        if (stop.stop_requested()) return;
        auto result = std::make_shared<DuplicateFinder::Result>(finder.scan(folders));
        if (stop.stop_requested()) return;
        main.post([this, alive, token, result] {
            if (alive.expired() || token != scanToken_) return;
            selected.set(proposals(result->groups, keepPreference()));
            status.set(summaryLine(result->groups));
            groups.set(std::move(result->groups));
            scanning.set(false);
        });
    });
}

void DuplicatesModel::cancel() {
    scanStop_.request_stop();
    if (!scanning.get()) return;
    ++scanToken_;
    scanning.set(false);
    status.set("");
}

void DuplicatesModel::apply(const DuplicateGroup& group, const std::set<std::string>& chosen) {
    std::set<std::string> next = selected.get();
    for (const auto& file : group.files) {
        if (chosen.contains(file.path)) {
            next.insert(file.path);
        } else {
            next.erase(file.path);
        }
    }
    selected.set(std::move(next));
}

void DuplicatesModel::setSelected(const std::string& path, bool on) {
    std::set<std::string> next = selected.get();
    if (on) {
        next.insert(path);
    } else {
        next.erase(path);
    }
    selected.set(std::move(next));
}

void DuplicatesModel::trashSelected() {
    if (trashing.get() || selected.get().empty()) return;
    trashing.set(true);
    s_.worker.post([this, alive = std::weak_ptr<bool>(alive_), chosen = selected.get(),
                    found = groups.get(), preference = keepPreference(), &trash = s_.trash,
                    &main = s_.main] {
        auto report = std::make_shared<DuplicateTrashReport>(
            trashDuplicates(chosen, found, preference, trash));
        main.post([this, alive, report] {
            if (alive.expired()) return;
            const std::set<std::string> gone(report->moved.begin(), report->moved.end());
            std::vector<DuplicateGroup> left;
            for (auto group : groups.get()) {
                std::erase_if(group.files,
                              [&](const DuplicateFile& f) { return gone.contains(f.path); });
                if (group.files.size() >= 2) left.push_back(std::move(group));
            }
            std::set<std::string> stillSelected;
            for (const auto& group : left)
                for (const auto& file : group.files)
                    if (selected.get().contains(file.path)) stillSelected.insert(file.path);
            groups.set(std::move(left));
            selected.set(std::move(stillSelected));
            status.set(report->statusLine());
            trashing.set(false);
        });
    });
}

void DuplicatesModel::addFolder(const std::string& folder) {
    if (folder.empty()) return;
    auto folders = extraFolders.get();
    if (std::find(folders.begin(), folders.end(), folder) != folders.end()) return;
    folders.push_back(folder);
    storeFolders(std::move(folders));
}

void DuplicatesModel::removeFolder(const std::string& folder) {
    auto folders = extraFolders.get();
    std::erase(folders, folder);
    storeFolders(std::move(folders));
}

void DuplicatesModel::storeFolders(std::vector<std::string> folders) {
    PlistArray array;
    for (const auto& folder : folders) array.emplace_back(folder);
    s_.standard.set(keys::duplicateFinderFolders, std::move(array));
    extraFolders.set(std::move(folders));
}

}  // namespace kestrow
