#pragma once

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "cleaners/cleaner.h"
#include "platform/locations.h"

namespace kestrow {

// The developer caches Kestrow offers to clear, in the order of their ids, passes and rows.
struct DeveloperCleaners {
    static const std::vector<std::string>& ids();
    // The menu row's title; empty for an unknown id.
    static std::string title(const std::string& id);
    // The name in messages; empty for an unknown id.
    static std::string name(const std::string& id);
    // Nothing for an unknown id.
    static std::unique_ptr<Cleaner> make(const std::string& id, const UserLocations& folders);
    // The cleaners worth a row on this machine: Xcode when it is installed, a package cache when
    // its folder exists now.
    static std::set<std::string> availableIDs(bool xcodeInstalled, const UserLocations& folders);
};

}  // namespace kestrow
