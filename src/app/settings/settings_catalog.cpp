#include "app/settings/settings_catalog.h"

#include <charconv>
#include <cmath>
#include <cstdlib>

#include "app/settings/settings_keys.h"
#include "app/settings/shared_settings.h"
#include "app/settings/standard_settings.h"
#include "support/iso_date.h"
#include "support/nesting_depth.h"

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

// Shown and written back with nlohmann's dump, which recurses once per level: a stored value
// nested deeper than any we write reads as the fallback.
json decodedJson(const std::optional<PlistData>& data, json fallback) {
    if (!data) return fallback;
    if (!jsonNestingWithin(
            std::string_view(reinterpret_cast<const char*>(data->data()), data->size())))
        return fallback;
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
    if (!jsonNestingWithin(text)) return std::nullopt;
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
        using S = StandardSettings;
        // One row per key: its store, its type, and the typed reader whose rules give its value.
        const auto standard = [](std::string_view name, SettingType type, auto read) {
            return SettingDescriptor{std::string(name), SettingsDomain::standard, type,
                                     [read](SettingsStore& store) { return json(read(S(store))); }};
        };
        const auto shared = [](std::string_view name, SettingType type, auto read) {
            return SettingDescriptor{
                std::string(name), SettingsDomain::shared, type,
                [read](SettingsStore& store) { return json(read(SharedSettings(store))); }};
        };
        std::vector<SettingDescriptor> t{
            standard(keys::notificationsEnabled, boolean,
                     [](const S& s) { return s.notificationsEnabled(); }),
            standard(keys::lastNotifiedProtectionCategory, string,
                     [](const S& s) { return orNull(s.lastNotifiedProtectionCategory()); }),
            standard(keys::didAutoEnableStartAtLaunch, boolean,
                     [](const S& s) { return s.didAutoEnableStartAtLaunch(); }),
            standard(keys::hideIconWhenProtected, boolean,
                     [](const S& s) { return s.hideIconWhenProtected(); }),
            standard(keys::hideIconDelaySeconds, real,
                     [](const S& s) { return s.hideIconDelaySeconds(); }),
            standard(keys::menuBarSymbolName, string,
                     [](const S& s) { return orNull(s.menuBarSymbolName()); }),
            standard(keys::menuBarAttentionSymbolName, string,
                     [](const S& s) { return orNull(s.menuBarAttentionSymbolName()); }),
            standard(keys::nightlyBackupEnabled, boolean,
                     [](const S& s) { return s.nightlyBackupEnabled(); }),
            standard(keys::nightlyBackupStartHour, integer,
                     [](const S& s) { return s.nightlyBackupStartHour(); }),
            standard(keys::nightlyBackupLastStart, date,
                     [](const S& s) { return dateOrNull(s.nightlyBackupLastStart()); }),
            standard(keys::keepAwakeDuringBackup, boolean,
                     [](const S& s) { return s.keepAwakeDuringBackup(); }),
            standard(keys::caffeineEnabled, boolean,
                     [](const S& s) { return s.caffeineEnabled(); }),
            standard(keys::hogWatchEnabled, boolean,
                     [](const S& s) { return s.hogWatchEnabled(); }),
            standard(keys::hogWatchDismissed, integerDictionary,
                     [](const S& s) { return integers(s.hogWatchDismissed()); }),
            standard(keys::duplicateFinderFolders, stringList,
                     [](const S& s) { return s.duplicateFinderFolders(); }),
            standard(keys::browserReclaimEnabled, boolean,
                     [](const S& s) { return s.browserReclaimEnabled(); }),
            standard(keys::browserReclaimLastRuns, dateDictionary,
                     [](const S& s) { return dates(s.browserReclaimLastRuns()); }),
            standard(keys::browserReclaimLastFreed, integerDictionary,
                     [](const S& s) { return integers(s.browserReclaimLastFreed()); }),
            standard(keys::browserReclaimBlocked, stringList,
                     [](const S& s) { return s.browserReclaimBlocked(); }),
        };
        for (const auto id : keys::developerCleanerIDs) {
            t.push_back(standard(keys::maintenanceEnabled(id), boolean,
                                 [id](const S& s) { return s.maintenanceEnabled(id); }));
        }
        const std::vector<SettingDescriptor> rest{
            standard(keys::maintenanceLastRuns, dateDictionary,
                     [](const S& s) { return dates(s.maintenanceLastRuns()); }),
            standard(keys::maintenanceLastFreed, integerDictionary,
                     [](const S& s) { return integers(s.maintenanceLastFreed()); }),
            standard(keys::batteryLidSleepDuringBackup, date,
                     [](const S& s) { return dateOrNull(s.batteryLidSleepDuringBackup()); }),
            standard(keys::adoptedPreUpdateMounts, boolean,
                     [](const S& s) { return s.adoptedPreUpdateMounts(); }),
            standard(keys::ownedMounts, jsonData,
                     [](const S& s) {
                         const json ledger = decodedJson(s.ownedMounts(), json::array());
                         return ledger.is_array() ? ledger : json::array();
                     }),
            shared(
                keys::preferences, jsonData,
                [](const SharedSettings& s) { return decodedJson(s.preferencesData(), nullptr); }),
            shared(keys::protectedThresholdHours, real,
                   [](const SharedSettings& s) { return s.protectedThresholdHours(); }),
            shared(keys::destinationReachable, optionalBoolean,
                   [](const SharedSettings& s) { return orNull(s.destinationReachable()); }),
            shared(keys::backupVolumeAttached, optionalBoolean,
                   [](const SharedSettings& s) { return orNull(s.backupVolumeAttached()); }),
            shared(keys::backupRunning, optionalBoolean,
                   [](const SharedSettings& s) { return orNull(s.backupRunning()); }),
            shared(keys::failureReasonReadable, optionalBoolean,
                   [](const SharedSettings& s) { return orNull(s.failureReasonReadable()); }),
            shared(keys::lastFailureReason, string,
                   [](const SharedSettings& s) { return orNull(s.lastFailureReason()); }),
            shared(
                keys::lastFailureReasonAttempt, date,
                [](const SharedSettings& s) { return dateOrNull(s.lastFailureReasonAttempt()); }),
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
    return setting.effective(store);
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
