#include "platform/linux/qt_keychain_secret_store.h"

#include <stdlib.h>

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QProcess>
#include <QStandardPaths>

#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "private_session_bus.h"
#include "wait_until.h"

namespace kestrow {
namespace {

using kestrow::testing::PrivateSessionBus;
using kestrow::testing::waitUntil;
using namespace std::chrono_literals;
using Status = SecretAnswer::Status;

const QString kSecretsName = QStringLiteral("org.freedesktop.secrets");

// Points this process's session bus at `bus` for the test's length: the keyring library finds
// the Secret Service there.
class SessionBusOverride {
public:
    explicit SessionBusOverride(const QString& address)
        : previous_(qgetenv("DBUS_SESSION_BUS_ADDRESS")) {
        qputenv("DBUS_SESSION_BUS_ADDRESS", address.toUtf8());
    }
    ~SessionBusOverride() { qputenv("DBUS_SESSION_BUS_ADDRESS", previous_); }

private:
    QByteArray previous_;
};

void stopProcess(QProcess& process) {
    if (process.state() == QProcess::NotRunning) return;
    process.terminate();
    if (!process.waitForFinished(3000)) {
        process.kill();
        process.waitForFinished(3000);
    }
}

// gnome-keyring's Secret Service on the test's bus, its login keyring made and unlocked with a
// password handed over on standard input. HOME and the XDG folders are the test's own.
class Keyring {
public:
    explicit Keyring(PrivateSessionBus& bus) : bus_(bus) {}
    ~Keyring() { stop(); }

    static bool isInstalled() {
        return !QStandardPaths::findExecutable(QStringLiteral("gnome-keyring-daemon")).isEmpty();
    }

    bool start() {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), bus_.address());
        daemon_.setProcessEnvironment(environment);
        daemon_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        daemon_.start(QStringLiteral("gnome-keyring-daemon"),
                      {"--foreground", "--unlock", "--components=secrets"});
        daemon_.write("keyring-unlock-password");
        daemon_.closeWriteChannel();
        return waitForOwner(bus_, daemon_);
    }
    void stop() { stopProcess(daemon_); }

    // Locks the default collection, as the desktop does on a screen lock or by hand.
    bool lock() {
        QDBusMessage call = QDBusMessage::createMethodCall(
            kSecretsName, QStringLiteral("/org/freedesktop/secrets"),
            QStringLiteral("org.freedesktop.Secret.Service"), QStringLiteral("Lock"));
        call << QVariant::fromValue(QList<QDBusObjectPath>{
            QDBusObjectPath(QStringLiteral("/org/freedesktop/secrets/aliases/default"))});
        const QDBusMessage reply = bus_.connect().call(call, QDBus::Block, 5000);
        return reply.type() == QDBusMessage::ReplyMessage;
    }

    // Whether `process` took the Secret Service's name on `bus` (and still runs).
    static bool waitForOwner(PrivateSessionBus& bus, QProcess& process) {
        QDBusConnection watcher = bus.connect();
        return waitUntil(
                   [&] {
                       return process.state() == QProcess::NotRunning ||
                              watcher.interface()->isServiceRegistered(kSecretsName).value();
                   },
                   10s) &&
               process.state() != QProcess::NotRunning;
    }

private:
    PrivateSessionBus& bus_;
    QProcess daemon_;
};

// Collects the answers of one store.
class Answers {
public:
    std::function<void(SecretAnswer)> next() {
        return [this](SecretAnswer answer) { received.push_back(std::move(answer)); };
    }
    std::optional<SecretAnswer> wait(std::size_t count, std::chrono::milliseconds limit = 15s) {
        if (!waitUntil([&] { return received.size() >= count; }, limit)) return std::nullopt;
        return received[count - 1];
    }
    std::vector<SecretAnswer> received;
};

// One bus for the whole life of a keyring, in the order a desktop may go through: none yet, one
// that works, locked, gone again, and one that hangs. (The keyring library binds to the first
// session bus it meets for the rest of the process, so one bus serves every step.)
TEST(QtKeychainSecretStore, AnswersForEveryStateOfTheKeyring) {
    if (!Keyring::isInstalled()) GTEST_SKIP() << "gnome-keyring-daemon is not installed";
    PrivateSessionBus bus;
    if (!bus.isRunning()) GTEST_SKIP() << bus.errorText().toStdString();
    SessionBusOverride session(bus.address());
    QtKeychainSecretStore store(3.0);
    Answers answers;
    const std::string service = "bar.vemb.orvel.restic";
    std::optional<SecretAnswer> answer;

    // No Secret Service on this desktop.
    store.write(service, "job-1", "a secret", answers.next());
    store.read(service, "job-1", answers.next());
    ASSERT_TRUE(answers.wait(2));
    for (const auto& early : answers.received) {
        EXPECT_EQ(early.status, Status::unavailable) << early.error;
        EXPECT_FALSE(early.error.empty());
        EXPECT_EQ(early.error.find("a secret"), std::string::npos);
    }
    answers.received.clear();

    Keyring keyring(bus);
    ASSERT_TRUE(keyring.start());
    store.read(service, "job-1", answers.next());
    answer = answers.wait(1);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, Status::notFound) << answer->error;
    EXPECT_FALSE(answer->secret);

    store.write(service, "job-1", "first secret", answers.next());
    answer = answers.wait(2);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, Status::done) << answer->error;
    store.write(service, "job-2", "another job's secret", answers.next());
    ASSERT_TRUE(answers.wait(3));

    store.read(service, "job-1", answers.next());
    answer = answers.wait(4);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, Status::done) << answer->error;
    EXPECT_EQ(answer->secret, "first secret");

    // A second write replaces the item rather than adding a second one beside it.
    store.write(service, "job-1", "second secret \xC3\xA9", answers.next());
    answer = answers.wait(5);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, Status::done) << answer->error;
    store.read(service, "job-1", answers.next());
    answer = answers.wait(6);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->secret, "second secret \xC3\xA9");

    store.remove(service, "job-1", answers.next());
    answer = answers.wait(7);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, Status::done) << answer->error;
    store.read(service, "job-1", answers.next());
    answer = answers.wait(8);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, Status::notFound) << answer->error;
    // Removing what is not there is what was asked for.
    store.remove(service, "job-1", answers.next());
    answer = answers.wait(9);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, Status::done) << answer->error;

    // The other account was left alone.
    store.read(service, "job-2", answers.next());
    answer = answers.wait(10);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->secret, "another job's secret");

    // Locked, and no prompt can open here (the private bus has no prompter): the item that is
    // there must not read as missing.
    ASSERT_TRUE(keyring.lock());
    store.read(service, "job-2", answers.next());
    answer = answers.wait(11);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, Status::locked) << answer->error;
    EXPECT_FALSE(answer->secret);
    store.write(service, "job-3", "b secret", answers.next());
    answer = answers.wait(12);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, Status::locked) << answer->error;

    // The keyring goes away.
    keyring.stop();
    store.read(service, "job-2", answers.next());
    answer = answers.wait(13);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, Status::unavailable) << answer->error;
    EXPECT_EQ(answers.received.size(), 13u);
    answers.received.clear();

    // Something owns the Secret Service's name and never reads a message.
    QProcess silent;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), bus.address());
    silent.setProcessEnvironment(environment);
    silent.start(QStringLiteral("/usr/bin/python3"),
                 {"-c",
                  "import dbus, time\n"
                  "dbus.SessionBus().request_name('org.freedesktop.secrets')\n"
                  "time.sleep(120)\n"});
    ASSERT_TRUE(Keyring::waitForOwner(bus, silent)) << "python3's dbus module is missing";
    const auto start = std::chrono::steady_clock::now();
    store.read(service, "job-2", answers.next());
    store.write(service, "job-2", "a secret", answers.next());
    ASSERT_TRUE(answers.wait(2, 8s));
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, 2900ms);
    EXPECT_LT(waited, 6s);
    for (const auto& late : answers.received) EXPECT_EQ(late.status, Status::timedOut);
    // Its late answers (its name gone, the calls fail) are dropped.
    stopProcess(silent);
    QTest::qWait(1000);
    EXPECT_EQ(answers.received.size(), 2u);
}

TEST(QtKeychainSecretStore, ReadsKeyringErrorsByTheirWordsWhereCodesDoNotTell) {
    // Codes QtKeychain gives for a Secret Service that is absent, locked or broken.
    EXPECT_EQ(QtKeychainSecretStore::statusOf(1, QStringLiteral("No match")), Status::notFound);
    EXPECT_EQ(QtKeychainSecretStore::statusOf(4, QString()), Status::locked);
    EXPECT_EQ(QtKeychainSecretStore::statusOf(
                  7, QStringLiteral("Cannot create an item in a locked collection")),
              Status::locked);
    EXPECT_EQ(QtKeychainSecretStore::statusOf(
                  7, QStringLiteral("The name org.freedesktop.secrets was not provided by any "
                                    ".service files")),
              Status::unavailable);
    EXPECT_EQ(QtKeychainSecretStore::statusOf(
                  7, QStringLiteral("Cannot autolaunch D-Bus without X11 $DISPLAY")),
              Status::unavailable);
    EXPECT_EQ(QtKeychainSecretStore::statusOf(5, QString()), Status::unavailable);
}

}  // namespace
}  // namespace kestrow
