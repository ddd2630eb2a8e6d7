#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "timemachine/destination.h"

namespace kestrow {

// The disks' own verdict on their health (SMART). Both calls block while the system is asked, so
// they run on a worker, never on the main thread.
class SmartStatus {
public:
    // Why a disk gave no verdict, in the words shown beside "unknown".
    static constexpr std::string_view kNoPermission = "no permission to read SMART";
    static constexpr std::string_view kNoSmart = "no SMART on this disk";
    static constexpr std::string_view kToolMissing = "no UDisks2 and no smartctl";
    static constexpr std::string_view kDiskNotFound = "its disk was not found";
    static constexpr std::string_view kNoAnswer = "the disk did not answer";

    // The verdict as the system words it: "Verified", "Not Supported", or words saying the disk is
    // failing; nothing when the disk or its verdict could not be found. Without a verdict, or with
    // "Not Supported", `reason` says why when it is known. Made from the words alone, so that a
    // verdict reads as its text.
    struct Verdict {
        std::optional<std::string> text;
        std::string reason;

        Verdict() = default;
        Verdict(std::nullopt_t) {}                   // NOLINT(google-explicit-constructor)
        Verdict(const char* words) : text(words) {}  // NOLINT(google-explicit-constructor)
        Verdict(std::string words)
            : text(std::move(words)) {}  // NOLINT(google-explicit-constructor)
        Verdict(std::optional<std::string> words, std::string_view why)
            : text(std::move(words)), reason(why) {}
        bool operator==(const Verdict&) const = default;
    };

    struct BackupDisk {
        bool connected = false;  // false when no mounted volume is the destination's
        Verdict verdict;
        bool operator==(const BackupDisk&) const = default;
    };

    virtual ~SmartStatus() = default;
    // The disk the system runs from.
    virtual Verdict bootDisk() = 0;
    // The disk holding a local backup destination's volume.
    virtual BackupDisk backupDisk(const Destination& destination) = 0;
};

}  // namespace kestrow
