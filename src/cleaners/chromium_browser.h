#pragma once

#include <string>
#include <vector>

#include "cleaners/cleaner_owner.h"

namespace kestrow {

// A browser whose disk caches the browser cleaner may clear.
struct ChromiumBrowser {
    std::string name;           // display name
    std::string id;             // the ledger's key for it
    std::string subpath;        // its profiles folder, under the per-user configuration folder
    std::string cachesSubpath;  // its folder under the per-user caches folder
    CleanerOwner owner;         // how to tell that it runs

    bool operator==(const ChromiumBrowser&) const = default;

    // The browsers of this platform, in the order of passes, messages and captions.
    static const std::vector<ChromiumBrowser>& all();
};

}  // namespace kestrow
