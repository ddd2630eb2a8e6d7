#include "cli/settings_command.h"

#include <fmt/format.h>

#include <QDBusConnection>

#include "app/settings/settings_catalog.h"
#include "app/settings/settings_keys.h"
#include "cli/command_application.h"
#include "platform/linux/linux_widget_host.h"
#include "platform/linux/xdg_autostart_login_items.h"
#include "support/log_sink.h"
#include "timemachine/shared_preferences.h"

namespace kestrow {

const char* const kSettingsUsage =
    "usage: kestrow settings [--json]\n"
    "       kestrow settings set KEY VALUE\n"
    "       kestrow settings unset KEY\n";

namespace {

// Start at login is not kept in either store: the autostart entry itself is the setting, so the
// desktop's own autostart settings, the menu's switch and this command can never disagree.
constexpr std::string_view kStartAtLogin = "startAtLogin";

XdgAutostartLoginItems loginItems(const UserLocations& locations) {
    std::error_code error;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    return XdgAutostartLoginItems(locations.autostartEntry(), self);
}

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
    const UserLocations locations = context.locations();
    document["standard"][std::string(kStartAtLogin)] = loginItems(locations).isEnabled();
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
    context.out << fmt::format("  {:<34} {} ({})\n", kStartAtLogin,
                               humanValue(document["standard"][std::string(kStartAtLogin)]),
                               locations.autostartEntry().string());
    context.out << "\n";
    section("Shared settings", SettingsDomain::shared, "shared");
    return kExitDone;
}

int setStartAtLogin(const CommandContext& context, const std::string& text) {
    if (text != "true" && text != "false")
        return usageError(context,
                          fmt::format("'{}' is not a boolean value for {}", text, kStartAtLogin));
    if (const auto error = loginItems(context.locations()).setEnabled(text == "true")) {
        context.err << "kestrow settings: " << *error << "\n";
        return kExitFailed;
    }
    return kExitDone;
}

// The value as given, in the form the effective values take; null for the kinds that have no
// range to fall outside of.
nlohmann::json givenValue(const PlistValue& value) {
    if (const bool* b = value.asBool()) return *b;
    if (const std::int64_t* i = value.asInteger()) return *i;
    if (const double* d = value.asReal()) return *d;
    if (const std::string* text = value.asString()) return *text;
    return nullptr;
}

// The snapshot in the shared store carries copies of the shared keys (the threshold and the live
// facts): it is stored again so that whatever shows Kestrow's status sees the change at once.
void restoreSnapshot(SettingsStore& shared) {
    const auto app = commandApplication();
    StderrLogSink sink(LogLevel::error);
    LinuxWidgetHost widgets(QDBusConnection::sessionBus());
    SharedPreferences(shared, widgets, Logger(sink, LogArea::general)).restore();
}

int set(const CommandContext& context) {
    if (context.arguments.size() != 3) return usageError(context, "set takes a key and a value");
    const std::string& name = context.arguments[1];
    const std::string& text = context.arguments[2];
    if (name == kStartAtLogin) return setStartAtLogin(context, text);
    const SettingDescriptor* setting = findSetting(name);
    if (setting == nullptr) return usageError(context, fmt::format("unknown key '{}'", name));
    const auto value = parseSettingValue(*setting, text);
    if (!value) {
        return usageError(context, fmt::format("'{}' is not a {} value for {}", text,
                                               typeName(setting->type), name));
    }
    Stores stores(context.locations());
    const StoreWrite write = stores.of(*setting).set(name, *value);
    if (write == StoreWrite::failed) {
        context.err << fmt::format("kestrow settings: could not write {}\n",
                                   stores.of(*setting).file().string());
        return kExitFailed;
    }
    if (write == StoreWrite::changed && setting->domain == SettingsDomain::shared &&
        name != keys::preferences)
        restoreSnapshot(stores.shared);
    // Stored as given, as a hand-edited file would hold it, but the app applies its range rule
    // on reading: say what it will act on.
    const nlohmann::json given = givenValue(*value);
    const nlohmann::json effective = effectiveValue(*setting, stores.of(*setting));
    if (!given.is_null() && effective != given) {
        context.err << fmt::format(
            "kestrow settings: {} is stored as {}, but that is out of range: Kestrow reads {} "
            "instead\n",
            name, text, humanValue(effective));
    }
    return kExitDone;
}

int unset(const CommandContext& context) {
    if (context.arguments.size() != 2) return usageError(context, "unset takes one key");
    const std::string& name = context.arguments[1];
    if (name == kStartAtLogin)
        return usageError(context, "startAtLogin is the autostart entry: set it to true or false");
    const SettingDescriptor* setting = findSetting(name);
    if (setting == nullptr) return usageError(context, fmt::format("unknown key '{}'", name));
    Stores stores(context.locations());
    const StoreWrite write = stores.of(*setting).remove(name);
    if (write == StoreWrite::failed) {
        context.err << fmt::format("kestrow settings: could not write {}\n",
                                   stores.of(*setting).file().string());
        return kExitFailed;
    }
    if (write == StoreWrite::changed && setting->domain == SettingsDomain::shared &&
        name != keys::preferences)
        restoreSnapshot(stores.shared);
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
