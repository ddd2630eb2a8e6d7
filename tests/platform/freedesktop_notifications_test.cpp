#include "platform/linux/freedesktop_notifications.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <optional>
#include <thread>
#include <vector>

#include "private_session_bus.h"
#include "wait_until.h"

namespace kestrow {
namespace {

using kestrow::testing::PrivateSessionBus;
using kestrow::testing::waitUntil;

const QString kService = QStringLiteral("org.freedesktop.Notifications");
const QString kPath = QStringLiteral("/org/freedesktop/Notifications");
const QString kMock = QStringLiteral("org.freedesktop.DBus.Mock");

struct NotifyCall {
    QString appName;
    uint replacesId;
    QString summary;
    QString body;
};

// The Notify calls the mock server received, in order.
std::vector<NotifyCall> notifyCalls(QDBusConnection connection) {
    auto request = QDBusMessage::createMethodCall(kService, kPath, kMock, "GetMethodCalls");
    request << QStringLiteral("Notify");
    const QDBusMessage reply = connection.call(request);
    std::vector<NotifyCall> calls;
    if (reply.type() != QDBusMessage::ReplyMessage) return calls;
    const auto list = reply.arguments().at(0).value<QDBusArgument>();
    list.beginArray();
    while (!list.atEnd()) {
        quint64 timestamp = 0;
        QVariantList args;
        list.beginStructure();
        list >> timestamp >> args;
        list.endStructure();
        calls.push_back({args.value(0).toString(), args.value(1).toUInt(), args.value(3).toString(),
                         args.value(4).toString()});
    }
    list.endArray();
    return calls;
}

// Asks for authorization and waits for the answer; checks that it never arrives synchronously
// and always on this thread.
std::optional<bool> authorization(FreedesktopNotifications& notifications) {
    std::optional<bool> granted;
    bool onThisThread = false;
    const auto thread = std::this_thread::get_id();
    notifications.requestAuthorization([&](bool answer) {
        onThisThread = std::this_thread::get_id() == thread;
        granted = answer;
    });
    if (granted) return std::nullopt;
    if (!waitUntil([&] { return granted.has_value(); }, std::chrono::seconds(10)))
        return std::nullopt;
    if (!onThisThread) return std::nullopt;
    return granted;
}

TEST(FreedesktopNotifications, AuthorizedExactlyWhenANotificationServerAnswers) {
    PrivateSessionBus bus;
    ASSERT_TRUE(bus.isRunning()) << bus.errorText().toStdString();
    FreedesktopNotifications notifications(bus.connect());
    EXPECT_EQ(authorization(notifications), false) << "a bus without a server";

    ASSERT_TRUE(bus.startNotificationDaemon()) << bus.errorText().toStdString();
    EXPECT_EQ(authorization(notifications), true);

    QTemporaryDir folder;
    const auto noBus = QDBusConnection::connectToBus("unix:path=" + folder.filePath("missing-bus"),
                                                     "kestrow-test-no-bus");
    FreedesktopNotifications withoutBus(noBus);
    EXPECT_EQ(authorization(withoutBus), false) << "no bus at all";
    withoutBus.post("protection-transition", "title", "body");  // quietly shows nothing
    QDBusConnection::disconnectFromBus("kestrow-test-no-bus");
}

TEST(FreedesktopNotifications, AServerThatNeverAnswersCountsAsNoServer) {
    PrivateSessionBus bus;
    ASSERT_TRUE(bus.isRunning()) << bus.errorText().toStdString();
    ASSERT_TRUE(bus.startMock({kService, kPath, kService}, kService))
        << bus.errorText().toStdString();
    auto addMethod =
        QDBusMessage::createMethodCall(kService, kPath, kMock, QStringLiteral("AddMethod"));
    addMethod << QString() << QStringLiteral("GetServerInformation") << QString()
              << QStringLiteral("ssss") << QStringLiteral("import time; time.sleep(20)");
    ASSERT_EQ(bus.connect().call(addMethod).type(), QDBusMessage::ReplyMessage);

    FreedesktopNotifications notifications(bus.connect(), std::chrono::milliseconds(300));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(authorization(notifications), false);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

TEST(FreedesktopNotifications, PostingAnIdentifierAgainReplacesItsNotification) {
    PrivateSessionBus bus;
    ASSERT_TRUE(bus.isRunning()) << bus.errorText().toStdString();
    ASSERT_TRUE(bus.startNotificationDaemon()) << bus.errorText().toStdString();
    const QDBusConnection observer = bus.connect();
    FreedesktopNotifications notifications(bus.connect());

    notifications.post("backup-failed", "Backup failed", "The disk was not found.");
    notifications.post("protection-transition", "Backed up", "Protected again.");
    // Posted before the server has answered the one above, and must still replace it.
    notifications.post("protection-transition", "Backup aging", "Last backup 3 days ago.");
    ASSERT_TRUE(waitUntil([&] { return notifyCalls(observer).size() == 3; }));
    notifications.post("protection-transition", "Not backed up", "Last backup 12 days ago.");
    notifications.post("backup-failed", "Backup failed", "Again.");
    ASSERT_TRUE(waitUntil([&] { return notifyCalls(observer).size() == 5; }));

    const auto calls = notifyCalls(observer);
    for (const NotifyCall& call : calls) EXPECT_EQ(call.appName, "Kestrow");
    // The mock hands out ids 1, 2, ... and answers a replacing call with the replaced id.
    EXPECT_EQ(calls[0].replacesId, 0u);
    EXPECT_EQ(calls[0].summary, "Backup failed");
    EXPECT_EQ(calls[0].body, "The disk was not found.");
    EXPECT_EQ(calls[1].replacesId, 0u);
    EXPECT_EQ(calls[2].replacesId, 2u);
    EXPECT_EQ(calls[2].summary, "Backup aging");
    // Different identifiers do not wait for each other, so the last two may come in any order.
    const auto replaced = [&calls](const QString& body) {
        for (const NotifyCall& call : calls) {
            if (call.body == body) return call.replacesId;
        }
        return 999u;
    };
    EXPECT_EQ(replaced("Last backup 12 days ago."), 2u);
    EXPECT_EQ(replaced("Again."), 1u);
}

}  // namespace
}  // namespace kestrow
