#include "cli/settings_command.h"

#include <fmt/format.h>

#include "app/settings/settings_catalog.h"
#include "support/log_sink.h"

namespace kestrow {

const char* const kSettingsUsage =
    "usage: kestrow settings [--json]\n"
    "       kestrow settings set KEY VALUE\n"
    "       kestrow settings unset KEY\n";

namespace {

struct Stores {
    StderrLogSink sink;
    SettingsStore standard;
    SettingsStore shared;

    explicit Stores(const UserLocations& locations)
        : standard(locations.standardStoreFile(), Logger(sink, LogArea::general)),
          shared(locations.sharedStoreFile(), Logger(sink, LogArea::general)) {}

    SettingsStore& of(const SettingDescriptor& setting) {
        return setting.domain == SettingsDomain::standard ? standard : shared;
    }
};

int usageError(const CommandContext& context, const std::string& message) {
    context.err << "kestrow settings: " << message << "\n" << kSettingsUsage;
    return kExitUsage;
}

std::string humanValue(const nlohmann::json& value) {
    if (value.is_null()) return "not set";
    if (value.is_string()) return value.get<std::string>();
    return value.dump();
}

int report(const CommandContext& context, bool asJson) {
    Stores stores(context.locations());
    nlohmann::json document = {{"standard", nlohmann::json::object()},
                               {"shared", nlohmann::json::object()}};
    for (const auto& setting : settingDescriptors()) {
        const char* group = setting.domain == SettingsDomain::standard ? "standard" : "shared";
        document[group][setting.name] = effectiveValue(setting, stores.of(setting));
    }
    if (asJson) {
        context.out << document.dump(2) << "\n";
        return kExitDone;
    }
    // The human form keeps the table's order, which groups related keys.
    const auto section = [&](const char* title, SettingsDomain domain, const char* group) {
        const SettingsStore& store =
            domain == SettingsDomain::standard ? stores.standard : stores.shared;
        context.out << title << " (" << store.file().string() << ")\n";
        for (const auto& setting : settingDescriptors()) {
            if (setting.domain != domain) continue;
            context.out << fmt::format("  {:<34} {}\n", setting.name,
                                       humanValue(document[group][setting.name]));
        }
    };
    section("Standard settings", SettingsDomain::standard, "standard");
    context.out << "\n";
    section("Shared settings", SettingsDomain::shared, "shared");
    return kExitDone;
}

int set(const CommandContext& context) {
    if (context.arguments.size() != 3) return usageError(context, "set takes a key and a value");
    const std::string& name = context.arguments[1];
    const std::string& text = context.arguments[2];
    const SettingDescriptor* setting = findSetting(name);
    if (setting == nullptr) return usageError(context, fmt::format("unknown key '{}'", name));
    const auto value = parseSettingValue(*setting, text);
    if (!value) {
        return usageError(context, fmt::format("'{}' is not a {} value for {}", text,
                                               typeName(setting->type), name));
    }
    Stores stores(context.locations());
    if (stores.of(*setting).set(name, *value) == StoreWrite::failed) {
        context.err << fmt::format("kestrow settings: could not write {}\n",
                                   stores.of(*setting).file().string());
        return kExitFailed;
    }
    return kExitDone;
}

int unset(const CommandContext& context) {
    if (context.arguments.size() != 2) return usageError(context, "unset takes one key");
    const std::string& name = context.arguments[1];
    const SettingDescriptor* setting = findSetting(name);
    if (setting == nullptr) return usageError(context, fmt::format("unknown key '{}'", name));
    Stores stores(context.locations());
    if (stores.of(*setting).remove(name) == StoreWrite::failed) {
        context.err << fmt::format("kestrow settings: could not write {}\n",
                                   stores.of(*setting).file().string());
        return kExitFailed;
    }
    return kExitDone;
}

}  // namespace

int runSettingsCommand(const CommandContext& context) {
    const auto& args = context.arguments;
    if (args.empty()) return report(context, false);
    if (args[0] == "--help" || args[0] == "-h") {
        context.out << kSettingsUsage;
        return kExitDone;
    }
    if (args[0] == "--json") {
        if (args.size() != 1) return usageError(context, "--json takes no further arguments");
        return report(context, true);
    }
    if (args[0] == "set") return set(context);
    if (args[0] == "unset") return unset(context);
    return usageError(context, fmt::format("unknown argument '{}'", args[0]));
}

}  // namespace kestrow
