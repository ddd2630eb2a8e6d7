#pragma once

#include <QDBusConnection>

#include <chrono>
#include <filesystem>
#include <optional>

#include "platform/power_source.h"

namespace kestrow {

// Mains or battery, from UPower on the system bus when it answers, else from the kernel's
// power-supply class. The kernel's answer: any online "Mains" supply means mains; else a system
// battery that discharges means battery, one that charges or is full means mains, and mains
// supplies that are all offline mean battery. A machine that reports neither (a desktop, a
// virtual machine, a container without /sys) has no battery to spare and counts as on mains.
class UPowerPowerSource final : public PowerSource {
public:
    explicit UPowerPowerSource(QDBusConnection systemBus,
                               std::filesystem::path powerSupplies = "/sys/class/power_supply",
                               std::chrono::milliseconds replyTimeout = std::chrono::seconds(2));

    std::optional<bool> onMainsPower() override;

    // The kernel's answer alone, from a folder laid out like /sys/class/power_supply.
    static std::optional<bool> fromPowerSupplies(const std::filesystem::path& folder);

private:
    std::optional<bool> fromUPower();

    QDBusConnection bus_;
    std::filesystem::path powerSupplies_;
    int timeoutMs_;
};

}  // namespace kestrow
