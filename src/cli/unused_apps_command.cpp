#include "cli/unused_apps_command.h"

#include <nlohmann/json.hpp>

#include "insights/unused_apps.h"
#include "platform/linux/system_clock.h"
#include "support/iso_date.h"

namespace kestrow {
namespace {

const char* const kUnusedAppsUsage = "usage: kestrow unused-apps [--json]\n";

}  // namespace

int runUnusedAppsCommand(const CommandContext& context) {
    bool json = false;
    for (const auto& arg : context.arguments) {
        if (arg != "--json") {
            context.err << "kestrow unused-apps: unknown option '" << arg << "'\n"
                        << kUnusedAppsUsage;
            return kExitUsage;
        }
        json = true;
    }
    const auto apps = UnusedApps::unused(
        UnusedApps::applications(UnusedApps::Sources::standard(context.environment)),
        SystemClock().now());
    if (json) {
        nlohmann::ordered_json list = nlohmann::ordered_json::array();
        for (const AppUsage& app : apps)
            list.push_back({{"path", app.path}, {"lastUsed", formatIsoDate(*app.lastUsed)}});
        context.out << list.dump(2) << "\n";
        return kExitDone;
    }
    if (apps.empty()) context.out << "None unopened for 180 days\n";
    for (const AppUsage& app : apps)
        context.out << formatIsoDate(*app.lastUsed).substr(0, 10) << "  " << app.path << "\n";
    return kExitDone;
}

}  // namespace kestrow
