#include "cli/status_report.h"

#include <fmt/format.h>

#include "backup/source_wording.h"
#include "menu/menu_alert_text.h"
#include "support/iso_date.h"

namespace kestrow {
namespace {

using Json = nlohmann::ordered_json;

template <typename T>
Json orNull(const std::optional<T>& value) {
    return value ? Json(*value) : Json(nullptr);
}

Json dateOrNull(const std::optional<WallTime>& date) {
    return date ? Json(formatIsoDate(*date)) : Json(nullptr);
}

Json ringsJson(const RingModel& model) {
    Json rings = Json::array();
    for (const auto& ring : model.rings) {
        rings.push_back({{"date", formatIsoDate(ring.date)},
                         {"firstDate", formatIsoDate(ring.firstDate)},
                         {"count", ring.count},
                         {"failed", ring.failed}});
    }
    Json gaps = Json::array();
    for (const auto& gap : model.gaps) {
        gaps.push_back({{"from", formatIsoDate(gap.from)}, {"to", dateOrNull(gap.to)}});
    }
    return {{"backupCount", model.backupCount},
            {"failedCount", model.failedCount},
            {"newestIndex", orNull(model.newestIndex)},
            {"rings", std::move(rings)},
            {"gaps", std::move(gaps)}};
}

std::string capitalised(std::string_view word) {
    std::string text(word);
    if (!text.empty() && text[0] >= 'a' && text[0] <= 'z')
        text[0] = static_cast<char>(text[0] - 'a' + 'A');
    return text;
}

Json alertsJson(const std::vector<MenuAlert>& alerts, const Wording& wording) {
    Json list = Json::array();
    for (const MenuAlert& alert : MenuAlerts::ordered(alerts)) {
        const MenuAlertText text = MenuAlertText::of(alert.kind, wording);
        Json entry = {
            {"kind", alert.kind.name()},
            {"headline", text.headline},
            {"explanation", orNull(text.explanation)},
            {"action", text.buttons.empty() ? Json(nullptr) : Json(text.buttons.front().title)}};
        if (!alert.folder.empty()) entry["folder"] = alert.folder;
        list.push_back(std::move(entry));
    }
    return list;
}

}  // namespace

nlohmann::ordered_json statusJson(const BackupStatusModel& model,
                                  const std::vector<MenuAlert>& alerts) {
    const ProtectionVerdict& verdict = model.verdict.get();
    const Wording wording = linuxWording(model.source.get());
    Json destination = nullptr;
    if (const auto& d = model.destination()) {
        destination = {{"id", d->id},
                       {"name", d->volumeName},
                       {"isNetwork", d->isNetwork},
                       {"reachable", orNull(model.destinationReachable.get())}};
    }
    const TimeMachineLiveStatus& live = model.live.get();
    Json source = nullptr;
    if (const auto& name = model.source.get())
        source = {{"kind", std::string(backupSourceKindName(name->kind))}, {"name", name->name}};
    Json history = Json::array();
    for (const auto& entry : model.history.get())
        history.push_back({{"date", formatIsoDate(entry.date)}, {"succeeded", entry.succeeded}});

    return {{"source", std::move(source)},
            {"state", std::string(protectionStateText(verdict.state))},
            {"reasons", verdict.reasons},
            {"lastAttemptFailed", verdict.lastAttemptFailed},
            {"destination", std::move(destination)},
            {"lastSuccessful", dateOrNull(model.lastSuccessful.get())},
            {"oldestBackup", dateOrNull(model.oldestBackup.get())},
            {"backupCount", model.backupCount.get()},
            {"live",
             {{"running", live.running},
              {"phase", orNull(live.phase)},
              {"percent", orNull(live.percent)},
              {"progressLine", live.running ? Json(live.progressLine()) : Json(nullptr)},
              {"timeRemaining", orNull(model.timeRemaining.get())}}},
            {"history", std::move(history)},
            {"rings", ringsJson(model.rings.get())},
            {"alerts", alertsJson(alerts, wording)}};
}

std::string statusText(const BackupStatusModel& model, const std::vector<MenuAlert>& alerts) {
    const ProtectionVerdict& verdict = model.verdict.get();
    const Wording wording = linuxWording(model.source.get());
    std::string text = capitalised(protectionStateText(verdict.state)) + "\n";
    for (const auto& reason : verdict.reasons) text += "  " + reason + "\n";
    if (const auto& name = model.source.get()) text += "Source: " + name->name + "\n";
    if (const auto& d = model.destination()) {
        const auto reachable = model.destinationReachable.get();
        std::string where = d->isNetwork ? "network" : "local";
        if (d->isNetwork)
            where += reachable ? (*reachable ? ", reachable" : ", not reachable") : "";
        text += fmt::format("Destination: {} ({})\n", d->volumeName, where);
    }
    if (const auto& live = model.live.get(); live.running) text += live.progressLine() + "\n";
    if (model.backupCount.get() > 0) {
        text += fmt::format("Backups: {}", model.backupCount.get());
        if (const auto oldest = model.oldestBackup.get())
            text += ", the oldest from " + formatIsoDate(*oldest);
        text += "\n";
    }
    if (!model.history.get().empty()) {
        text += "Recent:\n";
        for (const auto& entry : model.history.get()) {
            text += fmt::format("  {}  {}\n", formatIsoDate(entry.date),
                                entry.succeeded ? "backed up" : "did not complete");
        }
    }
    const auto ordered = MenuAlerts::ordered(alerts);
    if (!ordered.empty()) text += "Alerts:\n";
    for (const MenuAlert& alert : ordered) {
        const MenuAlertText words = MenuAlertText::of(alert.kind, wording);
        std::string line = words.headline;
        if (words.explanation) line += (words.runsOn ? "" : " ") + *words.explanation;
        if (!alert.folder.empty()) line += " (" + alert.folder + ")";
        text += "  " + line + "\n";
    }
    return text;
}

}  // namespace kestrow
