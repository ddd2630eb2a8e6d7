#include "private_session_bus.h"

#include <QDBusConnectionInterface>
#include <QDeadlineTimer>
#include <QFile>

#include <atomic>

#include "wait_until.h"

namespace kestrow::testing {
namespace {

constexpr int kStartMs = 10'000;

QString uniqueConnectionName() {
    static std::atomic<int> next{1};
    return QStringLiteral("kestrow-test-bus-%1").arg(next++);
}

}  // namespace

PrivateSessionBus::PrivateSessionBus() {
    if (!folder_.isValid()) {
        errorText_ = QStringLiteral("no temporary folder");
        return;
    }
    const QString config = folder_.filePath("bus.conf");
    QFile file(config);
    if (!file.open(QIODevice::WriteOnly)) {
        errorText_ = QStringLiteral("cannot write %1").arg(config);
        return;
    }
    file.write(
        QStringLiteral(
            R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:tmpdir=%1</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
    <allow user="*"/>
  </policy>
</busconfig>
)")
            .arg(folder_.path())
            .toUtf8());
    file.close();

    daemon_.setStandardErrorFile(folder_.filePath("dbus-daemon.log"));
    daemon_.start(QStringLiteral("dbus-daemon"),
                  {"--config-file=" + config, "--nofork", "--print-address=1"});
    const QDeadlineTimer deadline(kStartMs);
    while (!daemon_.canReadLine()) {
        if (deadline.hasExpired() ||
            !daemon_.waitForReadyRead(static_cast<int>(deadline.remainingTime()))) {
            errorText_ = QStringLiteral("dbus-daemon did not print its address: %1")
                             .arg(daemon_.errorString());
            stop(daemon_);
            return;
        }
    }
    address_ = QString::fromUtf8(daemon_.readLine()).trimmed();
}

PrivateSessionBus::~PrivateSessionBus() {
    for (auto& mock : mocks_) stop(*mock);
    for (const QString& name : connectionNames_) QDBusConnection::disconnectFromBus(name);
    stop(daemon_);
}

QDBusConnection PrivateSessionBus::connect() {
    const QString name = uniqueConnectionName();
    connectionNames_ << name;
    return QDBusConnection::connectToBus(address_, name);
}

bool PrivateSessionBus::startMock(const QStringList& arguments, const QString& busName) {
    auto mock = std::make_unique<QProcess>();
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), address_);
    mock->setProcessEnvironment(environment);
    const QString log = folder_.filePath(QStringLiteral("mock-%1.log").arg(mocks_.size()));
    mock->setStandardOutputFile(log);
    mock->setStandardErrorFile(log, QIODevice::Append);
    // Debian's dbusmock module is only importable by the system interpreter.
    mock->start(QStringLiteral("/usr/bin/python3"),
                QStringList{"-m", "dbusmock", "--session"} + arguments);
    QProcess& started = *mock;
    mocks_.push_back(std::move(mock));

    QDBusConnection watcher = connect();
    const bool owned = waitUntil(
        [&] {
            return started.state() == QProcess::NotRunning ||
                   watcher.interface()->isServiceRegistered(busName).value();
        },
        std::chrono::milliseconds(kStartMs));
    if (owned && started.state() != QProcess::NotRunning) return true;
    QFile output(log);
    output.open(QIODevice::ReadOnly);
    errorText_ = QStringLiteral("dbusmock did not take %1: %2").arg(busName, output.readAll());
    return false;
}

bool PrivateSessionBus::startNotificationDaemon() {
    return startMock({"-t", "notification_daemon"},
                     QStringLiteral("org.freedesktop.Notifications"));
}

void PrivateSessionBus::stop(QProcess& process) {
    if (process.state() == QProcess::NotRunning) return;
    process.terminate();
    if (!process.waitForFinished(3000)) {
        process.kill();
        process.waitForFinished(3000);
    }
}

}  // namespace kestrow::testing
