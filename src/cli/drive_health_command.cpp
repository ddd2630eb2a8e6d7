#include "cli/drive_health_command.h"

#include <QCoreApplication>

#include <nlohmann/json.hpp>

#include <memory>

#include "cli/command_application.h"
#include "insights/drive_health.h"
#include "platform/linux/smartctl_status.h"
#include "platform/linux/udisks_smart_status.h"
#include "timemachine/preferences.h"
#include "timemachine/preferences_file.h"

namespace kestrow {
namespace {

using Json = nlohmann::ordered_json;

const char* const kDriveHealthUsage = "usage: kestrow drive-health [--json]\n";

// The destination the backup status follows: the last one used, else the first one listed.
std::optional<Destination> backupDestination(const EnvironmentLookup& environment) {
    // A missing or unreadable settings file only means there is no backup disk to ask about, so
    // its error stays out of the terminal.
    StderrLogSink quiet(LogLevel::fault);
    const auto preferences =
        Preferences::read(PreferencesFile::location(environment), Logger(quiet, LogArea::general));
    if (!preferences) return std::nullopt;
    if (preferences->lastDestination) return preferences->lastDestination;
    if (preferences->destinations && !preferences->destinations->empty())
        return preferences->destinations->front();
    return std::nullopt;
}

Json statusJson(const DriveHealth::Status& status) {
    const auto text = status.text();
    return {{"status", status.name()}, {"text", text ? Json(*text) : Json(nullptr)}};
}

}  // namespace

int runDriveHealthCommand(const CommandContext& context) {
    bool json = false;
    for (const auto& arg : context.arguments) {
        if (arg != "--json") {
            context.err << "kestrow drive-health: unknown option '" << arg << "'\n"
                        << kDriveHealthUsage;
            return kExitUsage;
        }
        json = true;
    }
    // smartctl runs as a child process, which needs an application object.
    const auto app = commandApplication();

    SmartctlStatus smartctl(SmartctlStatus::program(context.environment));
    UdisksSmartStatus smart(QDBusConnection::systemBus(), smartctl);
    const auto reading = DriveHealth::read(backupDestination(context.environment), smart);
    if (json) {
        const Json document = {
            {"boot", statusJson(reading.first)},
            {"backup", reading.second ? statusJson(*reading.second) : Json(nullptr)}};
        context.out << document.dump(2) << "\n";
        return kExitDone;
    }
    context.out << "Boot disk: " << reading.first.description() << "\n"
                << "Backup disk: "
                << (reading.second ? reading.second->description() : "no backup destination")
                << "\n";
    return kExitDone;
}

}  // namespace kestrow
