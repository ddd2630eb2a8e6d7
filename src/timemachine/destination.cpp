#include "timemachine/destination.h"

#include <algorithm>

#include "support/url_credentials.h"

namespace kestrow {
namespace {

std::string stringOr(const PlistDict& dict, std::string_view key, std::string fallback = {}) {
    const auto found = dict.find(key);
    if (found == dict.end()) return fallback;
    const std::string* text = found->second.asString();
    return text != nullptr ? *text : fallback;
}

std::int64_t integerOr(const PlistDict& dict, std::string_view key, std::int64_t fallback) {
    const auto found = dict.find(key);
    if (found == dict.end()) return fallback;
    const std::int64_t* number = found->second.asInteger();
    return number != nullptr ? *number : fallback;
}

// A list with one element of another kind is a list of another type: it reads as absent rather
// than as a shorter list that would misstate the history.
std::vector<WallTime> dates(const PlistDict& dict, std::string_view key) {
    const auto found = dict.find(key);
    if (found == dict.end() || found->second.asArray() == nullptr) return {};
    std::vector<WallTime> result;
    for (const PlistValue& element : *found->second.asArray()) {
        const WallTime* date = element.asDate();
        if (date == nullptr) return {};
        result.push_back(*date);
    }
    return result;
}

std::optional<std::vector<std::string>> strings(const PlistDict& dict, std::string_view key) {
    const auto found = dict.find(key);
    if (found == dict.end() || found->second.asArray() == nullptr) return std::nullopt;
    std::vector<std::string> result;
    for (const PlistValue& element : *found->second.asArray()) {
        const std::string* text = element.asString();
        if (text == nullptr) return std::nullopt;
        result.push_back(*text);
    }
    return result;
}

}  // namespace

Destination Destination::fromPlist(const PlistDict& dict) {
    Destination d;
    d.id = stringOr(dict, "DestinationID");
    d.isEncrypted = stringOr(dict, "LastKnownEncryptionState") == "Encrypted";
    d.isNetwork = dict.contains("NetworkURL");
    d.bytesAvailable = integerOr(dict, "BytesAvailable", 0);
    d.bytesUsed = integerOr(dict, "BytesUsed", 0);
    d.volumeName = stringOr(dict, "LastKnownVolumeName");
    d.snapshots = dates(dict, "SnapshotDates");
    d.attempts = dates(dict, "AttemptDates");
    d.lastResult = integerOr(dict, "RESULT", 0);
    if (const auto url = dict.find("NetworkURL"); url != dict.end() && url->second.asString())
        d.networkURL = withoutPassword(*url->second.asString());
    d.destinationUUIDs = strings(dict, "DestinationUUIDs");
    return d;
}

std::optional<WallTime> Destination::previousAttempt() const {
    if (attempts.size() < 2) return std::nullopt;
    std::vector<WallTime> sorted = attempts;
    std::sort(sorted.begin(), sorted.end());
    return sorted[sorted.size() - 2];
}

std::optional<WallTime> Destination::newestSnapshot() const {
    if (snapshots.empty()) return std::nullopt;
    return *std::max_element(snapshots.begin(), snapshots.end());
}

std::optional<WallTime> Destination::oldestSnapshot() const {
    if (snapshots.empty()) return std::nullopt;
    return *std::min_element(snapshots.begin(), snapshots.end());
}

std::optional<WallTime> Destination::newestAttempt() const {
    if (attempts.empty()) return std::nullopt;
    return *std::max_element(attempts.begin(), attempts.end());
}

}  // namespace kestrow
