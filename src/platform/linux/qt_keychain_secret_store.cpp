#include "platform/linux/qt_keychain_secret_store.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QTimer>

#include <qt6keychain/keychain.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <utility>

namespace kestrow {
namespace {

// Answers one request once: from the job, or from the time limit, whichever comes first. It is
// a child of the store, so destroying the store drops the answer; the job itself is never
// destroyed early, since the keyring library still holds it until its call returns.
class PendingAnswer final : public QObject {
public:
    PendingAnswer(QObject* store, std::function<void(SecretAnswer)> done)
        : QObject(store), done_(std::move(done)) {}

    void answer(SecretAnswer answer) {
        if (answered_) return;
        answered_ = true;
        // Always later, never inside the job's signal or the request.
        QMetaObject::invokeMethod(
            this,
            [this, answer = std::move(answer)]() mutable {
                auto done = std::move(done_);
                deleteLater();
                if (done) done(std::move(answer));
            },
            Qt::QueuedConnection);
    }

private:
    std::function<void(SecretAnswer)> done_;
    bool answered_ = false;
};

QString text(const std::string& value) {
    return QString::fromStdString(value);
}

// When the default collection is locked and no prompt can open, the keyring library reports a
// read as "not found": the item may well be there. The Secret Service itself says whether the
// collection is locked; `then` hears true only when it says so.
void askWhetherLocked(QObject* context, std::function<void(bool locked)> then) {
    static int next = 0;
    const QString name = QStringLiteral("kestrow-secret-lock-check-%1").arg(++next);
    // A connection of its own, to the session bus the environment names now.
    QDBusConnection bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, name);
    if (!bus.isConnected()) {
        QDBusConnection::disconnectFromBus(name);
        then(false);
        return;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.secrets"),
        QStringLiteral("/org/freedesktop/secrets/aliases/default"),
        QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    call << QStringLiteral("org.freedesktop.Secret.Collection") << QStringLiteral("Locked");
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call), context);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, context,
                     [watcher, name, then = std::move(then)] {
                         const QDBusPendingReply<QDBusVariant> reply = *watcher;
                         const bool locked = !reply.isError() && reply.value().variant().toBool();
                         watcher->deleteLater();
                         QDBusConnection::disconnectFromBus(name);
                         then(locked);
                     });
}

}  // namespace

QtKeychainSecretStore::QtKeychainSecretStore(double timeLimitSeconds)
    : timeLimitSeconds_(std::isnan(timeLimitSeconds) ? kDefaultTimeLimitSeconds
                                                     : std::clamp(timeLimitSeconds, 0.0, 3600.0)) {}

QtKeychainSecretStore::~QtKeychainSecretStore() = default;

SecretAnswer::Status QtKeychainSecretStore::statusOf(int keychainError, const QString& errorText) {
    switch (keychainError) {
        case QKeychain::NoError:
            return SecretAnswer::Status::done;
        case QKeychain::EntryNotFound:
            return SecretAnswer::Status::notFound;
        case QKeychain::AccessDenied:
        case QKeychain::AccessDeniedByUser:
            return SecretAnswer::Status::locked;
        default:
            break;
    }
    // The Secret Service reports a locked collection, or a dismissed unlock prompt, as a
    // generic failure; only its words tell.
    const QString lowered = errorText.toLower();
    if (lowered.contains(QLatin1String("locked")) || lowered.contains(QLatin1String("prompt")) ||
        lowered.contains(QLatin1String("dismissed"))) {
        return SecretAnswer::Status::locked;
    }
    return SecretAnswer::Status::unavailable;
}

void QtKeychainSecretStore::read(const std::string& service, const std::string& account,
                                 std::function<void(SecretAnswer)> done) {
    auto* job = new QKeychain::ReadPasswordJob(text(service));
    job->setKey(text(account));
    track(job, Kind::read, std::move(done));
}

void QtKeychainSecretStore::write(const std::string& service, const std::string& account,
                                  const std::string& secret,
                                  std::function<void(SecretAnswer)> done) {
    auto* job = new QKeychain::WritePasswordJob(text(service));
    job->setKey(text(account));
    // QtKeychain replaces an item with the same service and account, else adds one.
    job->setBinaryData(QByteArray(secret.data(), static_cast<qsizetype>(secret.size())));
    track(job, Kind::write, std::move(done));
}

void QtKeychainSecretStore::remove(const std::string& service, const std::string& account,
                                   std::function<void(SecretAnswer)> done) {
    auto* job = new QKeychain::DeletePasswordJob(text(service));
    job->setKey(text(account));
    track(job, Kind::remove, std::move(done));
}

void QtKeychainSecretStore::track(QKeychain::Job* job, Kind kind,
                                  std::function<void(SecretAnswer)> done) {
    // Never a fallback to a plain file: a secret goes to the keyring or nowhere.
    job->setInsecureFallback(false);
    job->setAutoDelete(true);
    auto* pending = new PendingAnswer(this, std::move(done));

    auto* limit = new QTimer(pending);
    limit->setSingleShot(true);
    // A coarse timer may fire a little early; the limit is a promise both ways.
    limit->setTimerType(Qt::PreciseTimer);
    connect(limit, &QTimer::timeout, pending, [pending, limit = timeLimitSeconds_] {
        SecretAnswer answer;
        answer.status = SecretAnswer::Status::timedOut;
        answer.error =
            QStringLiteral("the keyring did not answer within %1 s").arg(limit).toStdString();
        pending->answer(std::move(answer));
    });
    limit->start(static_cast<int>(std::ceil(timeLimitSeconds_ * 1000.0)));

    // Direct: the job deletes itself once this returns, so everything is taken from it here.
    connect(job, &QKeychain::Job::finished, pending, [pending, kind](QKeychain::Job* finished) {
        SecretAnswer answer;
        answer.status = statusOf(finished->error(), finished->errorString());
        if (answer.status != SecretAnswer::Status::done)
            answer.error = finished->errorString().toStdString();
        if (kind == Kind::remove && answer.status == SecretAnswer::Status::notFound) {
            // Nothing to remove is what was asked for.
            answer.status = SecretAnswer::Status::done;
            answer.error.clear();
        }
        if (kind == Kind::read && answer.status == SecretAnswer::Status::notFound) {
            askWhetherLocked(pending, [pending, answer](bool locked) mutable {
                if (locked) answer.status = SecretAnswer::Status::locked;
                pending->answer(std::move(answer));
            });
            return;
        }
        if (kind == Kind::read && answer.status == SecretAnswer::Status::done) {
            const QByteArray data =
                static_cast<QKeychain::ReadPasswordJob*>(finished)->binaryData();
            answer.secret = std::string(data.constData(), static_cast<std::size_t>(data.size()));
        }
        pending->answer(std::move(answer));
    });
    job->start();
}

}  // namespace kestrow
