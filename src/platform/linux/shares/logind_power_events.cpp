#include "platform/linux/shares/logind_power_events.h"

#include <chrono>

namespace kestrow {
namespace {

const QString kService = QStringLiteral("org.freedesktop.login1");
const QString kPath = QStringLiteral("/org/freedesktop/login1");
const QString kInterface = QStringLiteral("org.freedesktop.login1.Manager");
const QString kSignal = QStringLiteral("PrepareForSleep");

}  // namespace

LogindPowerEvents::LogindPowerEvents(QDBusConnection systemBus) : bus_(std::move(systemBus)) {}

LogindPowerEvents::~LogindPowerEvents() {
    stop();
}

bool LogindPowerEvents::start(std::function<void(WallTime)> willSleep, std::function<void()> woke) {
    if (started_) return true;
    if (!bus_.isConnected()) return false;
    willSleep_ = std::move(willSleep);
    woke_ = std::move(woke);
    started_ =
        bus_.connect(kService, kPath, kInterface, kSignal, this, SLOT(prepareForSleep(bool)));
    return started_;
}

void LogindPowerEvents::stop() {
    if (!started_) return;
    bus_.disconnect(kService, kPath, kInterface, kSignal, this, SLOT(prepareForSleep(bool)));
    started_ = false;
}

void LogindPowerEvents::prepareForSleep(bool goingToSleep) {
    if (goingToSleep) {
        if (willSleep_) willSleep_(std::chrono::system_clock::now());
    } else if (woke_) {
        woke_();
    }
}

}  // namespace kestrow
