#include "timemachine/preferences.h"

#include <nlohmann/json.hpp>

#include <limits>

#include "support/atomic_file.h"
#include "support/nesting_depth.h"
#include "support/url_credentials.h"

namespace kestrow {
namespace {

using Json = nlohmann::ordered_json;

Json datesToJson(const std::vector<WallTime>& dates) {
    Json list = Json::array();
    for (const WallTime date : dates) list.push_back(secondsSinceReferenceDate(date));
    return list;
}

Json destinationToJson(const Destination& d) {
    Json j;
    j["id"] = d.id;
    j["isEncrypted"] = d.isEncrypted;
    j["isNetwork"] = d.isNetwork;
    j["bytesAvailable"] = d.bytesAvailable;
    j["bytesUsed"] = d.bytesUsed;
    j["volumeName"] = d.volumeName;
    j["snapshots"] = datesToJson(d.snapshots);
    j["attempts"] = datesToJson(d.attempts);
    j["lastResult"] = d.lastResult;
    if (d.networkURL) j["networkURL"] = *d.networkURL;
    if (d.destinationUUIDs) j["destinationUUIDs"] = *d.destinationUUIDs;
    return j;
}

// Decoding is strict, as a typed decoder is: a required field missing or of another type makes
// the whole record unreadable, and the caller treats that as "no snapshot".
struct DecodeError {
    std::string text;
};

const Json& required(const Json& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end()) throw DecodeError{std::string("missing \"") + key + "\""};
    return *found;
}

template <typename T>
T as(const Json& value, const char* key) {
    if constexpr (std::is_same_v<T, bool>) {
        if (!value.is_boolean()) throw DecodeError{std::string("\"") + key + "\" is not a bool"};
    } else if constexpr (std::is_same_v<T, std::string>) {
        if (!value.is_string()) throw DecodeError{std::string("\"") + key + "\" is not a string"};
    } else if constexpr (std::is_same_v<T, std::int64_t>) {
        // A count beyond the signed 64-bit range would otherwise wrap to a negative one.
        if (!value.is_number_integer() ||
            (value.is_number_unsigned() &&
             value.get<std::uint64_t>() >
                 static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())))
            throw DecodeError{std::string("\"") + key + "\" is not an integer"};
    } else if constexpr (std::is_same_v<T, double>) {
        if (!value.is_number()) throw DecodeError{std::string("\"") + key + "\" is not a number"};
    }
    return value.get<T>();
}

template <typename T>
std::optional<T> optional(const Json& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end() || found->is_null()) return std::nullopt;
    return as<T>(*found, key);
}

std::vector<WallTime> datesFromJson(const Json& value, const char* key) {
    if (!value.is_array()) throw DecodeError{std::string("\"") + key + "\" is not a list"};
    std::vector<WallTime> dates;
    for (const Json& element : value) {
        const double seconds = as<double>(element, key);
        const auto date = checkedFromSecondsSinceReferenceDate(seconds);
        if (!date) throw DecodeError{std::string("\"") + key + "\" holds a date out of range"};
        dates.push_back(*date);
    }
    return dates;
}

Destination destinationFromJson(const Json& j) {
    if (!j.is_object()) throw DecodeError{"a destination is not an object"};
    Destination d;
    d.id = as<std::string>(required(j, "id"), "id");
    d.isEncrypted = as<bool>(required(j, "isEncrypted"), "isEncrypted");
    d.isNetwork = as<bool>(required(j, "isNetwork"), "isNetwork");
    d.bytesAvailable = as<std::int64_t>(required(j, "bytesAvailable"), "bytesAvailable");
    d.bytesUsed = as<std::int64_t>(required(j, "bytesUsed"), "bytesUsed");
    d.volumeName = as<std::string>(required(j, "volumeName"), "volumeName");
    d.snapshots = datesFromJson(required(j, "snapshots"), "snapshots");
    d.attempts = datesFromJson(required(j, "attempts"), "attempts");
    d.lastResult = as<std::int64_t>(required(j, "lastResult"), "lastResult");
    // A snapshot stored before passwords were dropped on reading still loses it here.
    d.networkURL = optional<std::string>(j, "networkURL");
    if (d.networkURL) d.networkURL = withoutPassword(*d.networkURL);
    if (const auto found = j.find("destinationUUIDs"); found != j.end() && !found->is_null()) {
        if (!found->is_array()) throw DecodeError{"\"destinationUUIDs\" is not a list"};
        std::vector<std::string> ids;
        for (const Json& element : *found)
            ids.push_back(as<std::string>(element, "destinationUUIDs"));
        d.destinationUUIDs = std::move(ids);
    }
    return d;
}

}  // namespace

std::optional<Preferences> Preferences::fromPlist(const PlistValue& root) {
    const PlistDict* dict = root.asDict();
    if (dict == nullptr) return std::nullopt;
    Preferences p;
    if (const PlistValue* list = root.find("Destinations"); list && list->asArray()) {
        std::vector<Destination> destinations;
        for (const PlistValue& element : *list->asArray()) {
            if (const PlistDict* entry = element.asDict())
                destinations.push_back(Destination::fromPlist(*entry));
        }
        p.destinations = std::move(destinations);
    }
    const PlistValue* lastID = root.find("LastDestinationID");
    if (lastID != nullptr && lastID->asString() != nullptr && p.destinations) {
        for (const Destination& d : *p.destinations) {
            if (d.id == *lastID->asString()) {
                p.lastDestination = d;
                break;
            }
        }
    }
    if (const PlistValue* automatic = root.find("AutoBackup"); automatic && automatic->asBool())
        p.automaticBackups = *automatic->asBool();
    return p;
}

std::optional<Preferences> Preferences::read(const std::filesystem::path& file, const Logger& log) {
    std::string error;
    const auto bytes = readFile(file, &error);
    if (!bytes) {
        log.error("Failed reading content from preferences file: {}", error);
        return std::nullopt;
    }
    const auto root = PlistValue::parse(*bytes);
    std::optional<Preferences> preferences = root ? fromPlist(*root) : std::nullopt;
    if (!preferences) log.error("Failed serializing preferences file");
    return preferences;
}

std::string Preferences::toJson() const {
    Json j = Json::object();
    if (destinations) {
        Json list = Json::array();
        for (const Destination& d : *destinations) list.push_back(destinationToJson(d));
        j["destinations"] = std::move(list);
    }
    if (lastDestination) j["lastDestination"] = destinationToJson(*lastDestination);
    if (automaticBackups) j["automaticBackups"] = *automaticBackups;
    if (protectedThresholdHours) j["protectedThresholdHours"] = *protectedThresholdHours;
    if (destinationReachable) j["destinationReachable"] = *destinationReachable;
    if (backupVolumeAttached) j["backupVolumeAttached"] = *backupVolumeAttached;
    if (backupRunning) j["backupRunning"] = *backupRunning;
    if (failureReasonReadable) j["failureReasonReadable"] = *failureReasonReadable;
    // A threshold that is not a finite number cannot be written as JSON; it is never stored
    // that way, because the shared store's reals are checked on read.
    return j.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::optional<Preferences> Preferences::fromJson(std::string_view json, std::string* error) {
    const bool shallow = jsonNestingWithin(json);
    const Json j = shallow ? Json::parse(json, nullptr, false) : Json(nullptr);
    try {
        if (!shallow) throw DecodeError{"nested too deeply"};
        if (j.is_discarded()) throw DecodeError{"not JSON"};
        if (!j.is_object()) throw DecodeError{"not a JSON object"};
        Preferences p;
        if (const auto found = j.find("destinations"); found != j.end() && !found->is_null()) {
            if (!found->is_array()) throw DecodeError{"\"destinations\" is not a list"};
            std::vector<Destination> list;
            for (const Json& element : *found) list.push_back(destinationFromJson(element));
            p.destinations = std::move(list);
        }
        if (const auto found = j.find("lastDestination"); found != j.end() && !found->is_null())
            p.lastDestination = destinationFromJson(*found);
        p.automaticBackups = optional<bool>(j, "automaticBackups");
        p.protectedThresholdHours = optional<double>(j, "protectedThresholdHours");
        p.destinationReachable = optional<bool>(j, "destinationReachable");
        p.backupVolumeAttached = optional<bool>(j, "backupVolumeAttached");
        p.backupRunning = optional<bool>(j, "backupRunning");
        p.failureReasonReadable = optional<bool>(j, "failureReasonReadable");
        return p;
    } catch (const DecodeError& failure) {
        if (error != nullptr) *error = failure.text;
    } catch (const nlohmann::json::exception& failure) {
        if (error != nullptr) *error = failure.what();
    }
    return std::nullopt;
}

}  // namespace kestrow
