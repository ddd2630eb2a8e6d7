#include "app/settings/settings_catalog.h"

#include <charconv>
#include <cmath>
#include <cstdlib>

#include "app/settings/settings_keys.h"
#include "app/settings/shared_settings.h"
#include "app/settings/standard_settings.h"
#include "support/iso_date.h"

namespace kestrow {
namespace {

using nlohmann::json;

template <typename T>
json orNull(const std::optional<T>& value) {
    return value ? json(*value) : json(nullptr);
}

json dateOrNull(const std::optional<WallTime>& value) {
    return value ? json(formatIsoDate(*value)) : json(nullptr);
}

json dates(const std::map<std::string, WallTime>& entries) {
    json out = json::object();
    for (const auto& [key, date] : entries) out[key] = formatIsoDate(date);
    return out;
}

json integers(const std::map<std::string, std::int64_t>& entries) {
    json out = json::object();
    for (const auto& [key, value] : entries) out[key] = value;
    return out;
}

json decodedJson(const std::optional<PlistData>& data, json fallback) {
    if (!data) return fallback;
    json parsed = json::parse(data->begin(), data->end(), nullptr, false);
    return parsed.is_discarded() ? fallback : parsed;
}

std::optional<std::int64_t> parseInteger(std::string_view text) {
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || text.empty())
        return std::nullopt;
    return value;
}

std::optional<double> parseReal(std::string_view text) {
    const std::string owned(text);
    char* end = nullptr;
    const double value = std::strtod(owned.c_str(), &end);
    if (owned.empty() || end != owned.c_str() + owned.size() || !std::isfinite(value))
        return std::nullopt;
    return value;
}

std::optional<PlistValue> fromJsonText(SettingType type, std::string_view text) {
    const json parsed = json::parse(text, nullptr, false);
    if (parsed.is_discarded()) return std::nullopt;
    switch (type) {
        case SettingType::jsonData: {
            const std::string compact = parsed.dump();
            return PlistValue(PlistData(compact.begin(), compact.end()));
        }
        case SettingType::stringList: {
            if (!parsed.is_array()) return std::nullopt;
            PlistArray out;
            for (const auto& element : parsed) {
                if (!element.is_string()) return std::nullopt;
                out.emplace_back(element.get<std::string>());
            }
            return PlistValue(std::move(out));
        }
        case SettingType::integerDictionary:
        case SettingType::dateDictionary: {
            if (!parsed.is_object()) return std::nullopt;
            PlistDict out;
            for (const auto& [key, element] : parsed.items()) {
                if (type == SettingType::integerDictionary) {
                    if (!element.is_number_integer()) return std::nullopt;
                    out.insert_or_assign(key, PlistValue(element.get<std::int64_t>()));
                } else {
                    const auto date = element.is_string() ? parseIsoDate(element.get<std::string>())
                                                          : std::nullopt;
                    if (!date) return std::nullopt;
                    out.insert_or_assign(key, PlistValue(*date));
                }
            }
            return PlistValue(std::move(out));
        }
        default:
            return std::nullopt;
    }
}

}  // namespace

const std::vector<SettingDescriptor>& settingDescriptors() {
    static const std::vector<SettingDescriptor> table = [] {
        using enum SettingType;
        const auto standard = SettingsDomain::standard;
        const auto shared = SettingsDomain::shared;
        std::vector<SettingDescriptor> t{
            {std::string(keys::notificationsEnabled), standard, boolean},
            {std::string(keys::lastNotifiedProtectionCategory), standard, string},
            {std::string(keys::didAutoEnableStartAtLaunch), standard, boolean},
            {std::string(keys::hideIconWhenProtected), standard, boolean},
            {std::string(keys::hideIconDelaySeconds), standard, real},
            {std::string(keys::menuBarSymbolName), standard, string},
            {std::string(keys::menuBarAttentionSymbolName), standard, string},
            {std::string(keys::nightlyBackupEnabled), standard, boolean},
            {std::string(keys::nightlyBackupStartHour), standard, integer},
            {std::string(keys::nightlyBackupLastStart), standard, date},
            {std::string(keys::keepAwakeDuringBackup), standard, boolean},
            {std::string(keys::caffeineEnabled), standard, boolean},
            {std::string(keys::hogWatchEnabled), standard, boolean},
            {std::string(keys::hogWatchDismissed), standard, integerDictionary},
            {std::string(keys::duplicateFinderFolders), standard, stringList},
            {std::string(keys::browserReclaimEnabled), standard, boolean},
            {std::string(keys::browserReclaimLastRuns), standard, dateDictionary},
            {std::string(keys::browserReclaimLastFreed), standard, integerDictionary},
            {std::string(keys::browserReclaimBlocked), standard, stringList},
        };
        for (const auto id : keys::developerCleanerIDs)
            t.push_back({keys::maintenanceEnabled(id), standard, boolean});
        const std::vector<SettingDescriptor> rest{
            {std::string(keys::maintenanceLastRuns), standard, dateDictionary},
            {std::string(keys::maintenanceLastFreed), standard, integerDictionary},
            {std::string(keys::batteryLidSleepDuringBackup), standard, date},
            {std::string(keys::adoptedPreUpdateMounts), standard, boolean},
            {std::string(keys::ownedMounts), standard, jsonData},
            {std::string(keys::preferences), shared, jsonData},
            {std::string(keys::protectedThresholdHours), shared, real},
            {std::string(keys::destinationReachable), shared, optionalBoolean},
            {std::string(keys::backupVolumeAttached), shared, optionalBoolean},
            {std::string(keys::backupRunning), shared, optionalBoolean},
            {std::string(keys::failureReasonReadable), shared, optionalBoolean},
            {std::string(keys::lastFailureReason), shared, string},
            {std::string(keys::lastFailureReasonAttempt), shared, date},
        };
        t.insert(t.end(), rest.begin(), rest.end());
        return t;
    }();
    return table;
}

const SettingDescriptor* findSetting(std::string_view name) {
    for (const auto& setting : settingDescriptors()) {
        if (setting.name == name) return &setting;
    }
    return nullptr;
}

std::string_view typeName(SettingType type) {
    switch (type) {
        case SettingType::boolean:
            return "bool";
        case SettingType::optionalBoolean:
            return "optional bool";
        case SettingType::integer:
            return "integer";
        case SettingType::real:
            return "real";
        case SettingType::string:
            return "string";
        case SettingType::date:
            return "date";
        case SettingType::jsonData:
            return "JSON data";
        case SettingType::stringList:
            return "list of strings";
        case SettingType::integerDictionary:
            return "dictionary of integers";
        case SettingType::dateDictionary:
            return "dictionary of dates";
    }
    return "value";
}

json effectiveValue(const SettingDescriptor& setting, SettingsStore& store) {
    const std::string_view key = setting.name;
    if (setting.domain == SettingsDomain::shared) {
        const SharedSettings shared(store);
        if (key == keys::preferences) return decodedJson(shared.preferencesData(), nullptr);
        if (key == keys::protectedThresholdHours) return shared.protectedThresholdHours();
        if (key == keys::lastFailureReason) return orNull(shared.lastFailureReason());
        if (key == keys::lastFailureReasonAttempt)
            return dateOrNull(shared.lastFailureReasonAttempt());
        return orNull(store.boolValue(key));  // the four live facts: optional booleans
    }
    const StandardSettings s(store);
    if (key == keys::notificationsEnabled) return s.notificationsEnabled();
    if (key == keys::lastNotifiedProtectionCategory)
        return orNull(s.lastNotifiedProtectionCategory());
    if (key == keys::didAutoEnableStartAtLaunch) return s.didAutoEnableStartAtLaunch();
    if (key == keys::hideIconWhenProtected) return s.hideIconWhenProtected();
    if (key == keys::hideIconDelaySeconds) return s.hideIconDelaySeconds();
    if (key == keys::menuBarSymbolName) return orNull(s.menuBarSymbolName());
    if (key == keys::menuBarAttentionSymbolName) return orNull(s.menuBarAttentionSymbolName());
    if (key == keys::nightlyBackupEnabled) return s.nightlyBackupEnabled();
    if (key == keys::nightlyBackupStartHour) return s.nightlyBackupStartHour();
    if (key == keys::nightlyBackupLastStart) return dateOrNull(s.nightlyBackupLastStart());
    if (key == keys::keepAwakeDuringBackup) return s.keepAwakeDuringBackup();
    if (key == keys::caffeineEnabled) return s.caffeineEnabled();
    if (key == keys::hogWatchEnabled) return s.hogWatchEnabled();
    if (key == keys::hogWatchDismissed) return integers(s.hogWatchDismissed());
    if (key == keys::duplicateFinderFolders) return s.duplicateFinderFolders();
    if (key == keys::browserReclaimEnabled) return s.browserReclaimEnabled();
    if (key == keys::browserReclaimLastRuns) return dates(s.browserReclaimLastRuns());
    if (key == keys::browserReclaimLastFreed) return integers(s.browserReclaimLastFreed());
    if (key == keys::browserReclaimBlocked) return s.browserReclaimBlocked();
    if (key.starts_with(keys::maintenanceEnabledPrefix)) {
        return s.maintenanceEnabled(key.substr(keys::maintenanceEnabledPrefix.size()));
    }
    if (key == keys::maintenanceLastRuns) return dates(s.maintenanceLastRuns());
    if (key == keys::maintenanceLastFreed) return integers(s.maintenanceLastFreed());
    if (key == keys::batteryLidSleepDuringBackup)
        return dateOrNull(s.batteryLidSleepDuringBackup());
    if (key == keys::adoptedPreUpdateMounts) return s.adoptedPreUpdateMounts();
    if (key == keys::ownedMounts) {
        const json ledger = decodedJson(s.ownedMounts(), json::array());
        return ledger.is_array() ? ledger : json::array();
    }
    return nullptr;
}

std::optional<PlistValue> parseSettingValue(const SettingDescriptor& setting,
                                            std::string_view text) {
    switch (setting.type) {
        case SettingType::boolean:
        case SettingType::optionalBoolean:
            if (text == "true") return PlistValue(true);
            if (text == "false") return PlistValue(false);
            return std::nullopt;
        case SettingType::integer:
            if (auto v = parseInteger(text)) return PlistValue(*v);
            return std::nullopt;
        case SettingType::real:
            if (auto v = parseReal(text)) return PlistValue(*v);
            return std::nullopt;
        case SettingType::string:
            return PlistValue(text);
        case SettingType::date:
            if (auto v = parseIsoDate(text)) return PlistValue(*v);
            return std::nullopt;
        default:
            return fromJsonText(setting.type, text);
    }
}

}  // namespace kestrow
