#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "insights/size_snapshot.h"
#include "platform/locations.h"
#include "support/clock.h"
#include "support/logger.h"

namespace kestrow {

// Takes one snapshot of the big folders in the user's space: a full walk of the home that can
// run for minutes, so it belongs on a worker.
class HogScanner {
public:
    // Folders smaller than this are not remembered.
    static constexpr std::int64_t kMinimumBytes = 500'000'000;

    struct Counted {
        std::map<std::string, std::int64_t> sizes;
        int skipped = 0;
    };

    // Once `stop` is asked for, the walk winds down and snapshot() throws: a partial walk would
    // read as folders that shrank.
    HogScanner(UserLocations locations, Clock& clock, Logger log, std::stop_token stop = {});

    SizeSnapshot snapshot(WallTime now) const;

    // The home; on a Mac also the shared applications and files.
    static std::vector<std::filesystem::path> roots(const UserLocations& locations);
    // Both Trash folders, whose growth is the user's own doing and leaves at the next emptying,
    // and this watch's own snapshot folder: it holds a few kilobytes and is written while the
    // walk may be running, so it is left out rather than ever read half-written.
    static std::vector<std::filesystem::path> excludes(const UserLocations& locations);
    static Counted scanCounting(const std::vector<std::filesystem::path>& roots,
                                std::int64_t minimumBytes,
                                const std::vector<std::filesystem::path>& excludes,
                                std::stop_token stop = {});
    // Space an unprivileged user can still fill on the volume holding `path`.
    static std::optional<std::int64_t> freeBytes(const std::filesystem::path& path);

private:
    UserLocations locations_;
    Clock& clock_;
    Logger log_;
    std::stop_token stop_;
};

}  // namespace kestrow
