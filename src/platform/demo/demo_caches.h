#pragma once

#include <filesystem>

#include "platform/locations.h"

namespace kestrow {

// The demo's caches: a small pretend home with an npm cache, a pip cache and a browser profile,
// so the cleaners have something to show and take without touching the user's own files. What
// they take goes to the freedesktop Trash of the pretend home's data folder.
class DemoCaches final {
public:
    explicit DemoCaches(std::filesystem::path folder);

    // Folders as the cleaners see them: everything inside the demo folder.
    const UserLocations& folders() const { return folders_; }
    // Puts the caches in place again (after an earlier demo took them).
    void seed() const;

private:
    std::filesystem::path folder_;
    UserLocations folders_;
};

}  // namespace kestrow
