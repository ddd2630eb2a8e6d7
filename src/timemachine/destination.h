#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "support/clock.h"
#include "support/plist_value.h"

namespace kestrow {

// One configured backup destination, as the Time Machine settings file describes it. A key that
// is missing or of another type reads as the field's default, so a hand-edited or damaged file
// never stops the rest from being read.
struct Destination {
    std::string id;
    bool isEncrypted = false;
    bool isNetwork = false;
    std::int64_t bytesAvailable = 0;
    std::int64_t bytesUsed = 0;
    std::string volumeName;
    std::vector<WallTime> snapshots;  // completed backups
    std::vector<WallTime> attempts;   // every attempt, successful or not
    std::int64_t lastResult = 0;      // Time Machine's code for the last attempt; 0 is success
    std::optional<std::string> networkURL;
    std::optional<std::vector<std::string>> destinationUUIDs;

    bool operator==(const Destination&) const = default;

    // One element of the settings file's "Destinations" array.
    static Destination fromPlist(const PlistDict& dict);

    // The second-latest attempt, absent with fewer than two.
    std::optional<WallTime> previousAttempt() const;
    std::optional<WallTime> newestSnapshot() const;
    std::optional<WallTime> oldestSnapshot() const;
    std::optional<WallTime> newestAttempt() const;
};

}  // namespace kestrow
