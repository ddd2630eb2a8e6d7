// The Time Machine settings file is outside data, and so is the snapshot in the shared store that
// the widgets read. Whatever the bytes, reading either must end without a crash, and every record
// made from them must come back as itself through its JSON form: dates to well under a
// microsecond (coarser only far from today, where a double's step is coarser), text exactly
// unless it was not UTF-8 to begin with (JSON can only carry it repaired).
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "timemachine/preferences.h"

namespace {

using kestrow::Destination;
using kestrow::Preferences;
using kestrow::WallTime;

bool isUtf8(const std::string& text) {
    try {
        (void)nlohmann::json(text).dump();
        return true;
    } catch (const nlohmann::json::exception&) {
        return false;
    }
}

bool sameText(const std::string& original, const std::string& back) {
    return !isUtf8(original) || original == back;
}

bool sameDates(const std::vector<WallTime>& original, const std::vector<WallTime>& back) {
    if (original.size() != back.size()) return false;
    for (std::size_t i = 0; i < original.size(); ++i) {
        const double seconds = std::abs(kestrow::secondsSinceReferenceDate(original[i]));
        const double tolerance = std::max(1e-6, seconds * 1e-15);
        if (!(std::abs(kestrow::secondsBetween(original[i], back[i])) <= tolerance)) return false;
    }
    return true;
}

bool same(const Destination& a, const Destination& b) {
    if (!sameText(a.id, b.id) || !sameText(a.volumeName, b.volumeName)) return false;
    if (a.isEncrypted != b.isEncrypted || a.isNetwork != b.isNetwork) return false;
    if (a.bytesAvailable != b.bytesAvailable || a.bytesUsed != b.bytesUsed) return false;
    if (a.lastResult != b.lastResult) return false;
    if (!sameDates(a.snapshots, b.snapshots) || !sameDates(a.attempts, b.attempts)) return false;
    if (a.networkURL.has_value() != b.networkURL.has_value()) return false;
    if (a.networkURL && !sameText(*a.networkURL, *b.networkURL)) return false;
    if (a.destinationUUIDs.has_value() != b.destinationUUIDs.has_value()) return false;
    if (!a.destinationUUIDs) return true;
    if (a.destinationUUIDs->size() != b.destinationUUIDs->size()) return false;
    for (std::size_t i = 0; i < a.destinationUUIDs->size(); ++i) {
        if (!sameText((*a.destinationUUIDs)[i], (*b.destinationUUIDs)[i])) return false;
    }
    return true;
}

void checkRoundTrip(const Preferences& original) {
    std::string error;
    const auto back = Preferences::fromJson(original.toJson(), &error);
    if (!back) __builtin_trap();  // a record we wrote must always read back
    if (original.destinations.has_value() != back->destinations.has_value()) __builtin_trap();
    if (original.destinations) {
        if (original.destinations->size() != back->destinations->size()) __builtin_trap();
        for (std::size_t i = 0; i < original.destinations->size(); ++i) {
            if (!same((*original.destinations)[i], (*back->destinations)[i])) __builtin_trap();
        }
    }
    if (original.lastDestination.has_value() != back->lastDestination.has_value()) __builtin_trap();
    if (original.lastDestination && !same(*original.lastDestination, *back->lastDestination))
        __builtin_trap();
    if (original.protectedThresholdHours != back->protectedThresholdHours ||
        original.destinationReachable != back->destinationReachable ||
        original.backupVolumeAttached != back->backupVolumeAttached ||
        original.backupRunning != back->backupRunning ||
        original.failureReasonReadable != back->failureReasonReadable)
        __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    // As the settings file.
    if (const auto root = kestrow::PlistValue::parse(bytes)) {
        const auto preferences = Preferences::fromPlist(*root);
        if (root->asDict() != nullptr && !preferences) __builtin_trap();
        if (preferences) {
            if (preferences->lastDestination && !preferences->destinations) __builtin_trap();
            checkRoundTrip(*preferences);
        }
    }
    // As the stored snapshot.
    std::string error;
    if (const auto stored = Preferences::fromJson(bytes, &error)) {
        checkRoundTrip(*stored);
    } else if (error.empty()) {
        __builtin_trap();  // a refusal always says why
    }
    return 0;
}
