// Real files for the duplicate finder's tests: random content, a Trash that sets items aside in
// a folder of the test's, and a home with three groups of copies.
#pragma once

#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "app/settings/settings_store.h"
#include "insights/duplicate_finder.h"
#include "insights/duplicates_model.h"
#include "platform/trash.h"
#include "support/recording_log_sink.h"
#include "support/temp_folder.h"
#include "support/virtual_scheduler.h"

namespace kestrow::duplicate_test {

namespace fs = std::filesystem;
using testing::TempFolder;

inline constexpr std::size_t kMiB = 1'048'576;

inline std::string noise(std::size_t size, unsigned seed) {
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    for (auto& c : bytes) c = static_cast<char>(random() & 0xFFU);
    return bytes;
}

// A Trash that moves items into a folder of the test's, remembers what it was asked, and puts
// items back.
class FolderTrash final : public Trash {
public:
    explicit FolderTrash(fs::path folder) : folder_(std::move(folder)) {
        fs::create_directories(folder_);
    }
    TrashMove moveToTrash(const TrashRequest& request) override {
        requests.push_back(request);
        const fs::path to = folder_ / std::to_string(requests.size());
        std::error_code error;
        fs::rename(request.item, to, error);
        if (error) return {std::nullopt, error.message()};
        moved.push_back(request.item.string());
        return {TrashedItem{request.item, to, {}}, {}};
    }
    std::optional<std::string> putBack(const TrashedItem& item) override {
        std::error_code error;
        fs::rename(item.inTrash, item.original, error);
        if (error) return error.message();
        putBackItems.push_back(item.original.string());
        return std::nullopt;
    }
    std::vector<TrashRequest> requests;
    std::vector<std::string> moved;  // put back or not
    std::vector<std::string> putBackItems;

private:
    fs::path folder_;
};

inline std::vector<std::vector<std::string>> pathsOf(const std::vector<DuplicateGroup>& groups,
                                                     const fs::path& root) {
    std::vector<std::vector<std::string>> result;
    for (const auto& group : groups) {
        result.emplace_back();
        for (const auto& file : group.files)
            result.back().push_back(fs::path(file.path).lexically_relative(root).string());
    }
    return result;
}

// Three groups in a home, each copy a minute younger than the one before.
struct CopiesOnDisk {
    TempFolder root;
    TempFolder elsewhere;
    testing::RecordingLogSink sink;
    FolderTrash trash{elsewhere / "trash"};
    std::vector<DuplicateGroup> groups;

    CopiesOnDisk() {
        const auto written = fs::file_time_type::clock::now() - std::chrono::hours(1);
        int age = 0;
        const auto write = [&](const char* name, std::size_t size, unsigned seed) {
            root.write(name, noise(size, seed));
            fs::last_write_time(root / name, written + std::chrono::minutes(age++));
        };
        for (const char* name : {"Documents/a", "Downloads/a", "Desktop/a"}) write(name, kMiB, 1);
        for (const char* name : {"Desktop/b1", "Desktop/b2", "Desktop/b3"})
            write(name, kMiB + 1, 2);
        for (const char* name : {"Desktop/c1", "Desktop/c2"}) write(name, kMiB + 2, 3);
        groups = DuplicateFinder(Logger(sink, LogArea::general)).scan({root.path()}).groups;
    }
    // The window's model over these copies, with its settings in `standard`.
    DuplicatesModel::Services modelOn(SettingsStore& standard, VirtualScheduler& scheduler) {
        return {standard,
                scheduler.mainExecutor(),
                scheduler.makeSerialQueue(),
                trash,
                UserLocations::resolve(root.homeEnvironment()),
                Logger(sink, LogArea::general),
                {},
                std::nullopt};
    }
    KeepPreference preference() const { return {{root / "Documents"}, root / "Downloads"}; }
    std::string operator/(const std::string& name) const { return (root / name).string(); }
};

}  // namespace kestrow::duplicate_test
