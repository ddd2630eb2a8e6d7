#pragma once

#include <QDBusConnection>
#include <QObject>

#include <functional>

#include "platform/system_power_events.h"
#include "support/clock.h"

namespace kestrow {

// Sleep and wake from logind's PrepareForSleep on the system bus. Linux has no "dark" wake with
// the display off, so every wake is a full one.
class LogindPowerEvents final : public QObject, public SystemPowerEvents {
    Q_OBJECT
public:
    LogindPowerEvents(QDBusConnection systemBus, Clock& clock, QObject* parent = nullptr);
    ~LogindPowerEvents() override;

    bool start(std::function<void(WallTime)> willSleep, std::function<void()> woke) override;
    void stop() override;
    std::optional<std::uint64_t> wakeCapabilities() override { return std::nullopt; }

private Q_SLOTS:
    void onPrepareForSleep(bool sleeping);

private:
    QDBusConnection bus_;
    Clock& clock_;
    bool started_ = false;
    std::function<void(WallTime)> willSleep_;
    std::function<void()> woke_;
};

}  // namespace kestrow
