#pragma once

#include <QDBusConnection>
#include <QString>

#include <chrono>
#include <optional>

#include "platform/idle_time.h"

namespace kestrow {

// The session's idle time from the desktop over the session bus: GNOME's idle monitor
// (milliseconds) when it answers, else the freedesktop screen saver (seconds). A session without
// either, X11 or not, gives nothing.
class SessionIdleTime final : public IdleTime {
public:
    explicit SessionIdleTime(QDBusConnection sessionBus,
                             std::chrono::milliseconds replyTimeout = std::chrono::seconds(2));

    std::optional<double> secondsSinceLastInput() override;

private:
    std::optional<double> call(const QString& service, const QString& path,
                               const QString& interface, const QString& method);

    QDBusConnection bus_;
    int timeoutMs_;
};

}  // namespace kestrow
