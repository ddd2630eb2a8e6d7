#include "platform/linux/upower_power_source.h"

#include <QDBusMessage>
#include <QDBusVariant>
#include <QVariant>

#include <algorithm>
#include <string>

#include "support/atomic_file.h"

namespace kestrow {
namespace {

namespace fs = std::filesystem;

const QString kService = QStringLiteral("org.freedesktop.UPower");
const QString kPath = QStringLiteral("/org/freedesktop/UPower");

// The first line of a sysfs attribute; empty when it cannot be read.
std::string attribute(const fs::path& supply, const char* name) {
    std::string text = readFile(supply / name).value_or("");
    const auto end = text.find_first_of("\r\n");
    if (end != std::string::npos) text.resize(end);
    while (!text.empty() && text.back() == ' ') text.pop_back();
    return text;
}

}  // namespace

UPowerPowerSource::UPowerPowerSource(QDBusConnection systemBus, fs::path powerSupplies,
                                     std::chrono::milliseconds replyTimeout)
    : bus_(std::move(systemBus)),
      powerSupplies_(std::move(powerSupplies)),
      timeoutMs_(static_cast<int>(
          std::clamp<std::chrono::milliseconds::rep>(replyTimeout.count(), 1, 60'000))) {}

std::optional<bool> UPowerPowerSource::onMainsPower() {
    if (const auto answer = fromUPower()) return answer;
    return fromPowerSupplies(powerSupplies_);
}

std::optional<bool> UPowerPowerSource::fromUPower() {
    if (!bus_.isConnected()) return std::nullopt;
    auto call = QDBusMessage::createMethodCall(
        kService, kPath, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    call << kService << QStringLiteral("OnBattery");
    const QDBusMessage reply = bus_.call(call, QDBus::Block, timeoutMs_);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return std::nullopt;
    const QVariant value = reply.arguments().constFirst().value<QDBusVariant>().variant();
    if (value.metaType().id() != QMetaType::Bool) return std::nullopt;
    return !value.toBool();
}

std::optional<bool> UPowerPowerSource::fromPowerSupplies(const fs::path& folder) {
    bool mainsSeen = false;
    bool discharging = false;
    bool batteryFed = false;  // a system battery charging, full or held: power comes from outside
    bool batteryUnclear = false;
    std::error_code error;
    fs::directory_iterator entries(folder, error);
    if (error) return true;
    for (const auto& entry : entries) {
        const fs::path supply = entry.path();
        const std::string type = attribute(supply, "type");
        if (type == "Mains") {
            mainsSeen = true;
            if (attribute(supply, "online") == "1") return true;
        } else if (type == "Battery") {
            // Mice and headsets report batteries too; only the machine's own count.
            if (attribute(supply, "scope") == "Device") continue;
            const std::string status = attribute(supply, "status");
            if (status == "Discharging") {
                discharging = true;
            } else if (status == "Charging" || status == "Full" || status == "Not charging") {
                batteryFed = true;
            } else {
                batteryUnclear = true;
            }
        }
    }
    if (discharging) return false;
    // A charger on USB-C shows as a "USB" supply while the "Mains" one stays offline.
    if (batteryFed) return true;
    if (mainsSeen) return false;
    if (batteryUnclear) return std::nullopt;
    return true;
}

}  // namespace kestrow
