#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "cleaners/cleaner_owner.h"

namespace kestrow {

// How a path (or the error met while reading it) stands for a cleaner.
enum class PathStatus { usable, absent, notPermitted, failed };

// What a cleaner found to move to the Trash, fresh on every call.
struct CleanerDiscovery {
    struct Error {
        PathStatus status = PathStatus::failed;  // notPermitted blocks the cleaner
        std::string text;
        bool operator==(const Error&) const = default;
    };
    std::vector<std::filesystem::path> targets;
    std::optional<Error> error;  // discovery stopped; `targets` holds nothing then
    // The folders the targets were found under (the home, a cache or configuration root). They
    // are trusted as the kernel resolves them; below them, every folder on the way to a target
    // must be a real folder, and the move is made through them.
    std::vector<std::filesystem::path> anchors;
    bool operator==(const CleanerDiscovery&) const = default;
};

// One kind of cache or leftover that can be moved to the Trash. A cleaner knows its targets and
// re-checks each one right before it is moved; the pass does everything else.
class Cleaner {
public:
    virtual ~Cleaner() = default;
    virtual std::string id() const = 0;    // stable key in the ledger and the settings
    virtual std::string name() const = 0;  // shown in messages
    virtual CleanerOwner owner() const = 0;
    virtual CleanerDiscovery discover() const = 0;
    // The cleaner's own last word that `target` is one of its legitimate targets.
    virtual bool isReclaimable(const std::filesystem::path& target) const = 0;
};

}  // namespace kestrow
