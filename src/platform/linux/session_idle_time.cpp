#include "platform/linux/session_idle_time.h"

#include <QDBusMessage>
#include <QVariant>

#include <algorithm>

namespace kestrow {

SessionIdleTime::SessionIdleTime(QDBusConnection sessionBus, std::chrono::milliseconds replyTimeout)
    : bus_(std::move(sessionBus)),
      timeoutMs_(static_cast<int>(
          std::clamp<std::chrono::milliseconds::rep>(replyTimeout.count(), 1, 60'000))) {}

std::optional<double> SessionIdleTime::secondsSinceLastInput() {
    if (!bus_.isConnected()) return std::nullopt;
    if (const auto milliseconds =
            call(QStringLiteral("org.gnome.Mutter.IdleMonitor"),
                 QStringLiteral("/org/gnome/Mutter/IdleMonitor/Core"),
                 QStringLiteral("org.gnome.Mutter.IdleMonitor"), QStringLiteral("GetIdletime"))) {
        return *milliseconds / 1000.0;
    }
    const QString screenSaver = QStringLiteral("org.freedesktop.ScreenSaver");
    if (const auto seconds = call(screenSaver, QStringLiteral("/org/freedesktop/ScreenSaver"),
                                  screenSaver, QStringLiteral("GetSessionIdleTime"))) {
        return seconds;
    }
    return std::nullopt;
}

std::optional<double> SessionIdleTime::call(const QString& service, const QString& path,
                                            const QString& interface, const QString& method) {
    const QDBusMessage reply = bus_.call(
        QDBusMessage::createMethodCall(service, path, interface, method), QDBus::Block, timeoutMs_);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return std::nullopt;
    const QVariant value = reply.arguments().constFirst();
    // The idle monitor answers an unsigned 64-bit count, the screen saver an unsigned 32-bit one;
    // anything else is not an idle time.
    switch (value.metaType().id()) {
        case QMetaType::ULongLong:
        case QMetaType::UInt:
        case QMetaType::LongLong:
        case QMetaType::Int: {
            const double number = value.toDouble();
            if (number < 0.0) return std::nullopt;
            return number;
        }
        default:
            return std::nullopt;
    }
}

}  // namespace kestrow
