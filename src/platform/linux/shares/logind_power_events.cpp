#include "platform/linux/shares/logind_power_events.h"

namespace kestrow {
namespace {

const QString kService = QStringLiteral("org.freedesktop.login1");
const QString kPath = QStringLiteral("/org/freedesktop/login1");
const QString kInterface = QStringLiteral("org.freedesktop.login1.Manager");

}  // namespace

LogindPowerEvents::LogindPowerEvents(QDBusConnection systemBus, Clock& clock, QObject* parent)
    : QObject(parent), bus_(std::move(systemBus)), clock_(clock) {}

LogindPowerEvents::~LogindPowerEvents() {
    stop();
}

bool LogindPowerEvents::start(std::function<void(WallTime)> willSleep, std::function<void()> woke) {
    if (started_) return true;
    willSleep_ = std::move(willSleep);
    woke_ = std::move(woke);
    // The subscription holds even while logind is not (yet) on the bus: the signal is matched
    // by its sender's well-known name.
    started_ = bus_.isConnected() &&
               bus_.connect(kService, kPath, kInterface, QStringLiteral("PrepareForSleep"), this,
                            SLOT(onPrepareForSleep(bool)));
    return started_;
}

void LogindPowerEvents::stop() {
    if (!started_) return;
    bus_.disconnect(kService, kPath, kInterface, QStringLiteral("PrepareForSleep"), this,
                    SLOT(onPrepareForSleep(bool)));
    started_ = false;
}

void LogindPowerEvents::onPrepareForSleep(bool sleeping) {
    if (sleeping) {
        if (willSleep_) willSleep_(clock_.now());
    } else if (woke_) {
        woke_();
    }
}

}  // namespace kestrow
