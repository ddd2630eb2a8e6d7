#include "cli/hogs_command.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <nlohmann/json.hpp>

#include <exception>

#include "app/settings/settings_store.h"
#include "app/settings/standard_settings.h"
#include "insights/hog_scanner.h"
#include "insights/hog_store.h"
#include "insights/hog_watch.h"
#include "platform/linux/system_clock.h"
#include "support/byte_count_format.h"

namespace kestrow {
namespace {

using Json = nlohmann::ordered_json;

const char* const kUsage = "usage: kestrow hogs [--json] [--scan]\n";

std::string plural(int count, const char* one, const char* many) {
    return fmt::format("{} {}", count, count == 1 ? one : many);
}

Json alertJson(const HogAlert& alert) {
    return {{"path", alert.path},
            {"size", alert.size},
            {"growth", alert.growth},
            {"isNew", alert.isNew},
            {"days", alert.days},
            {"outside", alert.outside ? Json(*alert.outside) : Json(nullptr)},
            {"outsideOf", alert.outsideOf}};
}

void printText(std::ostream& out, const std::vector<HogAlert>& alerts,
               const std::optional<int>& daysUntilFull, std::size_t snapshots) {
    if (alerts.empty()) out << "No fast-growing folders.\n";
    for (const HogAlert& alert : alerts) {
        out << alert.path << "  " << formatByteCount(alert.size) << "  ";
        if (alert.isNew) {
            out << "new";
        } else {
            out << "grew " << formatByteCount(alert.growth);
            if (alert.days > 0) out << " in " << plural(alert.days, "day", "days");
        }
        out << "\n";
        if (alert.outside) {
            out << "    " << formatByteCount(*alert.outside) << " outside "
                << fmt::format("{}", fmt::join(alert.outsideOf, ", ")) << "\n";
        }
    }
    if (daysUntilFull)
        out << "The disk fills in about " << plural(*daysUntilFull, "day", "days") << ".\n";
    out << plural(static_cast<int>(snapshots), "snapshot", "snapshots") << "\n";
}

}  // namespace

int runHogsCommand(const CommandContext& context) {
    bool json = false;
    bool scan = false;
    for (const auto& arg : context.arguments) {
        if (arg == "--json") {
            json = true;
        } else if (arg == "--scan") {
            scan = true;
        } else {
            context.err << "kestrow hogs: unknown option '" << arg << "'\n" << kUsage;
            return kExitUsage;
        }
    }
    // The scan's own lines go to standard error, so that --json output stays one document.
    StderrLogSink sink(scan ? LogLevel::info : LogLevel::error);
    const Logger log(sink, LogArea::hogWatch);
    const UserLocations folders = context.locations();
    const HogStore store(HogStore::folderIn(folders));

    if (scan) {
        SystemClock clock;
        const HogScanner scanner(folders, clock, log);
        std::string error;
        try {
            SizeSnapshot snapshot = scanner.snapshot(clock.now());
            snapshot.kind = SizeSnapshot::Kind::manual;
            if (!store.save(snapshot, &error)) {
                log.error("could not save snapshot ({})", error);
                return kExitFailed;
            }
        } catch (const std::exception& failure) {
            log.error("scan failed ({})", failure.what());
            return kExitFailed;
        }
    }

    const std::vector<SizeSnapshot> snapshots = store.load();
    SettingsStore standard(folders.standardStoreFile(), Logger(sink, LogArea::general));
    const auto [alerts, daysUntilFull] =
        HogWatch::latest(snapshots, StandardSettings(standard).hogWatchDismissed());

    if (json) {
        Json list = Json::array();
        for (const HogAlert& alert : alerts) list.push_back(alertJson(alert));
        context.out << Json(
                           {{"alerts", std::move(list)},
                            {"daysUntilFull", daysUntilFull ? Json(*daysUntilFull) : Json(nullptr)},
                            {"snapshots", snapshots.size()}})
                           .dump(2)
                    << "\n";
    } else {
        printText(context.out, alerts, daysUntilFull, snapshots.size());
    }
    return kExitDone;
}

}  // namespace kestrow
