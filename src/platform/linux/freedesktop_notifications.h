#pragma once

#include <QDBusConnection>
#include <QObject>

#include <chrono>
#include <map>
#include <optional>
#include <string>

#include "platform/notifications.h"

namespace kestrow {

// Desktop notifications through the org.freedesktop.Notifications service. There is no
// permission prompt on Linux: notifications are "authorized" when a server answers.
class FreedesktopNotifications : public QObject, public UserNotifications {
    Q_OBJECT
public:
    explicit FreedesktopNotifications(
        QDBusConnection connection,
        std::chrono::milliseconds replyTimeout = std::chrono::seconds(4),
        QObject* parent = nullptr);

    // `done` runs later on this object's thread: true when a notification server answered.
    void requestAuthorization(std::function<void(bool granted)> done) override;

    // Shows a notification; call on this object's thread. Posting the same identifier again
    // replaces the one shown before instead of stacking a second one. Without a bus or server
    // nothing is shown.
    void post(std::string identifier, std::string title, std::string body) override;

private:
    struct Message {
        std::string title;
        std::string body;
    };
    struct Shown {
        quint32 serverId = 0;
        bool inFlight = false;
        std::optional<Message> waiting;  // the newest post made while the previous was in flight
    };

    void send(const std::string& identifier, const Message& message);

    QDBusConnection connection_;
    int timeoutMs_;
    std::map<std::string, Shown> shown_;
};

}  // namespace kestrow
