#pragma once

#include <QDBusConnection>
#include <QObject>

#include "platform/system_power_events.h"

namespace kestrow {

// Sleep and wake from logind's PrepareForSleep signal on the system bus. Linux does not say what
// woke the machine, so every wake is a full one. Lives on the main thread, where the signal
// arrives.
class LogindPowerEvents final : public QObject, public SystemPowerEvents {
    Q_OBJECT
public:
    explicit LogindPowerEvents(QDBusConnection systemBus);
    ~LogindPowerEvents() override;

    bool start(std::function<void(WallTime)> willSleep, std::function<void()> woke) override;
    void stop() override;
    std::optional<std::uint64_t> wakeCapabilities() override { return std::nullopt; }

private Q_SLOTS:
    void prepareForSleep(bool goingToSleep);

private:
    QDBusConnection bus_;
    bool started_ = false;
    std::function<void(WallTime)> willSleep_;
    std::function<void()> woke_;
};

}  // namespace kestrow
