#include "insights/drive_health.h"

#include <fmt/format.h>

namespace kestrow {

std::string_view DriveHealth::Status::name() const {
    switch (value.index()) {
        case 0:
            return "failing";
        case 1:
            return "unavailable";
        case 2:
            return "verified";
        case 3:
            return "unknown";
        default:
            return "notApplicable";
    }
}

std::optional<std::string> DriveHealth::Status::text() const {
    if (const auto* failing = std::get_if<Failing>(&value)) return failing->text;
    if (const auto* unavailable = std::get_if<Unavailable>(&value)) return unavailable->reason;
    if (const auto* unknown = std::get_if<Unknown>(&value); unknown && !unknown->reason.empty())
        return unknown->reason;
    return std::nullopt;
}

std::string DriveHealth::Status::description() const {
    if (std::holds_alternative<NotApplicable>(value)) return "not applicable";
    if (const auto words = text()) return fmt::format("{} ({})", name(), *words);
    return std::string(name());
}

DriveHealth::Status DriveHealth::status(const std::optional<std::string>& smartText,
                                        bool isNetwork) {
    if (isNetwork) return {NotApplicable{}};
    if (!smartText || smartText->empty() || *smartText == "Not Supported") return {Unknown{}};
    if (*smartText == "Verified") return {Verified{}};
    return {Failing{*smartText}};
}

DriveHealth::Status DriveHealth::status(const SmartStatus::Verdict& verdict) {
    Status classified = status(verdict.text, false);
    if (auto* unknown = std::get_if<Unknown>(&classified.value)) {
        unknown->reason = verdict.reason;
        if (unknown->reason.empty() && verdict.text == "Not Supported")
            unknown->reason = SmartStatus::kNoSmart;
    }
    return classified;
}

DriveHealth::Reading DriveHealth::read(const std::optional<Destination>& destination,
                                       SmartStatus& smart) {
    Reading reading{status(smart.bootDisk()), std::nullopt};
    if (!destination) return reading;
    if (destination->isNetwork) {
        reading.second = status(std::nullopt, true);
        return reading;
    }
    const SmartStatus::BackupDisk disk = smart.backupDisk(*destination);
    reading.second =
        disk.connected ? status(disk.verdict) : Status{Unavailable{std::string(kNotConnected)}};
    return reading;
}

std::string DriveHealth::logLine(const Reading& reading) {
    return fmt::format("Drive health: boot {}, backup {}", reading.first.description(),
                       reading.second ? reading.second->description() : "none");
}

}  // namespace kestrow
