#pragma once

#include <nlohmann/json.hpp>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/settings/settings_store.h"

namespace kestrow {

enum class SettingsDomain { standard, shared };

enum class SettingType {
    boolean,
    optionalBoolean,  // absent means "not known"
    integer,
    real,
    string,
    date,
    jsonData,  // JSON kept as binary data
    stringList,
    integerDictionary,  // string to integer
    dateDictionary,     // string to date
};

// Every key Kestrow reads or writes, with its store and type: the one vocabulary behind
// `kestrow settings` and its refusals.
struct SettingDescriptor {
    std::string name;
    SettingsDomain domain;
    SettingType type;
    // The value the app acts on, read through the key's typed reader.
    std::function<nlohmann::json(SettingsStore&)> effective;
};

const std::vector<SettingDescriptor>& settingDescriptors();
const SettingDescriptor* findSetting(std::string_view name);
std::string_view typeName(SettingType type);

// The value the app acts on, after the default and range rules; "not known" is null. Dates are
// ISO 8601 UTC strings.
nlohmann::json effectiveValue(const SettingDescriptor& setting, SettingsStore& store);

// Command-line text in the key's own type: true/false, integers, reals, ISO dates, strings, and
// JSON for lists, dictionaries and data keys. Nothing when the text is not of that type.
std::optional<PlistValue> parseSettingValue(const SettingDescriptor& setting,
                                            std::string_view text);

}  // namespace kestrow
