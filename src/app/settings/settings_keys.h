#pragma once

#include <array>
#include <string>
#include <string_view>

namespace kestrow::keys {

// Standard store: the app's own settings and memories.
inline constexpr std::string_view notificationsEnabled = "notificationsEnabled";
inline constexpr std::string_view lastNotifiedProtectionCategory = "lastNotifiedProtectionCategory";
inline constexpr std::string_view didAutoEnableStartAtLaunch = "didAutoEnableStartAtLaunch";
inline constexpr std::string_view hideIconWhenProtected = "hideIconWhenProtected";
inline constexpr std::string_view hideIconDelaySeconds = "hideIconDelaySeconds";
inline constexpr std::string_view menuBarSymbolName = "menuBarSymbolName";
inline constexpr std::string_view menuBarAttentionSymbolName = "menuBarAttentionSymbolName";
inline constexpr std::string_view nightlyBackupEnabled = "nightlyBackupEnabled";
inline constexpr std::string_view nightlyBackupStartHour = "nightlyBackupStartHour";
inline constexpr std::string_view nightlyBackupLastStart = "nightlyBackupLastStart";
inline constexpr std::string_view keepAwakeDuringBackup = "keepAwakeDuringBackup";
inline constexpr std::string_view caffeineEnabled = "caffeineEnabled";
inline constexpr std::string_view hogWatchEnabled = "hogWatchEnabled";
inline constexpr std::string_view hogWatchDismissed = "hogWatchDismissed";
inline constexpr std::string_view duplicateFinderFolders = "duplicateFinderFolders";
inline constexpr std::string_view browserReclaimEnabled = "browserReclaimEnabled";
inline constexpr std::string_view browserReclaimLastRuns = "browserReclaimLastRuns";
inline constexpr std::string_view browserReclaimLastFreed = "browserReclaimLastFreed";
inline constexpr std::string_view browserReclaimBlocked = "browserReclaimBlocked";
inline constexpr std::string_view maintenanceEnabledPrefix = "maintenanceEnabled.";
inline constexpr std::string_view maintenanceLastRuns = "maintenanceLastRuns";
inline constexpr std::string_view maintenanceLastFreed = "maintenanceLastFreed";
inline constexpr std::string_view batteryLidSleepDuringBackup = "batteryLidSleepDuringBackup";
inline constexpr std::string_view adoptedPreUpdateMounts = "adoptedPreUpdateMounts";
inline constexpr std::string_view ownedMounts = "ownedMounts";

// The developer cleaners, in the order of their ids, passes and rows.
inline constexpr std::array<std::string_view, 4> developerCleanerIDs{"xcode", "npm", "pip",
                                                                     "homebrew"};

inline std::string maintenanceEnabled(std::string_view cleanerID) {
    return std::string(maintenanceEnabledPrefix) + std::string(cleanerID);
}

// Shared store: the latest Time Machine snapshot and the live facts beside it.
inline constexpr std::string_view preferences = "preferences";
inline constexpr std::string_view protectedThresholdHours = "protectedThresholdHours";
inline constexpr std::string_view destinationReachable = "destinationReachable";
inline constexpr std::string_view backupVolumeAttached = "backupVolumeAttached";
inline constexpr std::string_view backupRunning = "backupRunning";
inline constexpr std::string_view failureReasonReadable = "failureReasonReadable";
inline constexpr std::string_view lastFailureReason = "lastFailureReason";
inline constexpr std::string_view lastFailureReasonAttempt = "lastFailureReasonAttempt";

}  // namespace kestrow::keys
