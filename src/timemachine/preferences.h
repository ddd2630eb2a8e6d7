#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/logger.h"
#include "support/plist_value.h"
#include "timemachine/destination.h"

namespace kestrow {

// The Time Machine settings as Kestrow keeps them: the configured destinations and the last-used
// one, plus the live facts that the shared store overlays when the record is stored, so that
// whatever reads the shared store sees one consistent picture.
struct Preferences {
    std::optional<std::vector<Destination>> destinations;
    std::optional<Destination> lastDestination;
    // Time Machine's own schedule ("AutoBackup"); absent when the file does not say.
    std::optional<bool> automaticBackups;
    std::optional<double> protectedThresholdHours;
    std::optional<bool> destinationReachable;
    std::optional<bool> backupVolumeAttached;
    std::optional<bool> backupRunning;
    std::optional<bool> failureReasonReadable;

    bool operator==(const Preferences&) const = default;

    // From the settings file's top-level dictionary; nothing when `root` is not a dictionary.
    static std::optional<Preferences> fromPlist(const PlistValue& root);
    // Reads and parses the settings file (XML or binary). Failures are logged and give nothing.
    static std::optional<Preferences> read(const std::filesystem::path& file, const Logger& log);

    // Field names as keys; dates as seconds since 2001-01-01 00:00:00 UTC; absent fields left out.
    std::string toJson() const;
    // Nothing (and the reason in `error`) when `json` is not such a record.
    static std::optional<Preferences> fromJson(std::string_view json, std::string* error = nullptr);
};

}  // namespace kestrow
