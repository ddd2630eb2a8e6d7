#pragma once

#include <QDBusConnection>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>
#include <vector>

namespace kestrow::testing {

// A private D-Bus session bus for one test: its own dbus-daemon with an allow-all policy and no
// service activation (so nothing installed on the machine answers), plus python3-dbusmock
// services started on it. Everything started is stopped again by process id.
class PrivateSessionBus {
public:
    PrivateSessionBus();
    ~PrivateSessionBus();
    PrivateSessionBus(const PrivateSessionBus&) = delete;
    PrivateSessionBus& operator=(const PrivateSessionBus&) = delete;

    bool isRunning() const { return !address_.isEmpty(); }
    const QString& address() const { return address_; }
    // Why the bus or a mock did not start.
    const QString& errorText() const { return errorText_; }

    // A new connection to the bus, closed when the bus goes.
    QDBusConnection connect();
    // Starts `python3 -m dbusmock --session <arguments>` and waits until it owns `busName`.
    bool startMock(const QStringList& arguments, const QString& busName);
    // Starts the notification_daemon template at org.freedesktop.Notifications.
    bool startNotificationDaemon();

private:
    static void stop(QProcess& process);

    QTemporaryDir folder_;
    QProcess daemon_;
    QString address_;
    QString errorText_;
    std::vector<std::unique_ptr<QProcess>> mocks_;
    QStringList connectionNames_;
};

}  // namespace kestrow::testing
