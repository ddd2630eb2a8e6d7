#include "platform/linux/freedesktop_notifications.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QMetaObject>
#include <QStringList>
#include <QVariantMap>

#include <algorithm>

namespace kestrow {
namespace {

const QString kService = QStringLiteral("org.freedesktop.Notifications");
const QString kPath = QStringLiteral("/org/freedesktop/Notifications");
const QString kInterface = QStringLiteral("org.freedesktop.Notifications");

}  // namespace

FreedesktopNotifications::FreedesktopNotifications(QDBusConnection connection,
                                                   std::chrono::milliseconds replyTimeout,
                                                   QObject* parent)
    : QObject(parent),
      connection_(std::move(connection)),
      timeoutMs_(static_cast<int>(
          std::clamp<std::chrono::milliseconds::rep>(replyTimeout.count(), 1, 600'000))) {}

void FreedesktopNotifications::requestAuthorization(std::function<void(bool granted)> done) {
    if (!connection_.isConnected()) {
        QMetaObject::invokeMethod(
            this, [done = std::move(done)] { done(false); }, Qt::QueuedConnection);
        return;
    }
    const auto message =
        QDBusMessage::createMethodCall(kService, kPath, kInterface, "GetServerInformation");
    auto* watcher = new QDBusPendingCallWatcher(connection_.asyncCall(message, timeoutMs_), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [done = std::move(done)](QDBusPendingCallWatcher* call) {
                call->deleteLater();
                done(!call->isError());
            });
}

void FreedesktopNotifications::post(std::string identifier, std::string title, std::string body) {
    Shown& shown = shown_[identifier];
    Message message{std::move(title), std::move(body)};
    // The server's id for this identifier is only known once the earlier Notify has answered;
    // sending now would stack a second notification instead of replacing the first.
    if (shown.inFlight) {
        shown.waiting = std::move(message);
        return;
    }
    send(identifier, message);
}

void FreedesktopNotifications::send(const std::string& identifier, const Message& message) {
    if (!connection_.isConnected()) return;
    Shown& shown = shown_[identifier];
    auto call = QDBusMessage::createMethodCall(kService, kPath, kInterface, "Notify");
    call << QStringLiteral("Kestrow") << shown.serverId << QString()
         << QString::fromStdString(message.title) << QString::fromStdString(message.body)
         << QStringList() << QVariantMap() << -1;
    shown.inFlight = true;
    auto* watcher = new QDBusPendingCallWatcher(connection_.asyncCall(call, timeoutMs_), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, identifier](QDBusPendingCallWatcher* finished) {
                finished->deleteLater();
                Shown& answered = shown_[identifier];
                answered.inFlight = false;
                const QDBusPendingReply<quint32> reply = *finished;
                if (!reply.isError()) answered.serverId = reply.value();
                if (answered.waiting) {
                    const Message next = std::move(*answered.waiting);
                    answered.waiting.reset();
                    send(identifier, next);
                }
            });
}

}  // namespace kestrow
