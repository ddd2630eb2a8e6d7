// Revealing a folder through a python3-dbusmock file manager on a private session bus.
#include "platform/linux/file_manager_reveal.h"

#include <QDBusArgument>
#include <QDBusMessage>

#include <gtest/gtest.h>

#include "private_session_bus.h"

namespace kestrow {
namespace {

using kestrow::testing::PrivateSessionBus;

const QString kName = QStringLiteral("org.freedesktop.FileManager1");
const QString kPath = QStringLiteral("/org/freedesktop/FileManager1");

TEST(FileManagerReveal, HandsTheFileManagerTheItemsUriAndSaysWhenNoneAnswers) {
    PrivateSessionBus bus;
    ASSERT_TRUE(bus.isRunning()) << bus.errorText().toStdString();
    // Nothing owns the name yet: the caller must fall back.
    EXPECT_FALSE(FileManagerReveal(bus.connect()).reveal("/srv/videos"));

    ASSERT_TRUE(bus.startMock({kName, kPath, kName}, kName)) << bus.errorText().toStdString();
    auto add = QDBusMessage::createMethodCall(
        kName, kPath, QStringLiteral("org.freedesktop.DBus.Mock"), QStringLiteral("AddMethod"));
    add << kName << QStringLiteral("ShowItems") << QStringLiteral("ass") << QString() << QString();
    const QDBusMessage added = bus.connect().call(add);
    ASSERT_EQ(added.type(), QDBusMessage::ReplyMessage) << added.errorMessage().toStdString();

    EXPECT_TRUE(FileManagerReveal(bus.connect()).reveal("/srv/home movies/été"));

    auto get =
        QDBusMessage::createMethodCall(kName, kPath, QStringLiteral("org.freedesktop.DBus.Mock"),
                                       QStringLiteral("GetMethodCalls"));
    get << QStringLiteral("ShowItems");
    const QDBusMessage calls = bus.connect().call(get);
    ASSERT_EQ(calls.type(), QDBusMessage::ReplyMessage) << calls.errorMessage().toStdString();
    // a(tav): each call's time and arguments; the first argument is the list of URIs.
    const QDBusArgument list = calls.arguments().at(0).value<QDBusArgument>();
    std::vector<QStringList> uris;
    list.beginArray();
    while (!list.atEnd()) {
        quint64 when = 0;
        QVariantList arguments;
        list.beginStructure();
        list >> when >> arguments;
        list.endStructure();
        uris.push_back(qdbus_cast<QStringList>(arguments.value(0)));
    }
    list.endArray();
    EXPECT_EQ(uris, std::vector<QStringList>{
                        QStringList{QStringLiteral("file:///srv/home%20movies/%C3%A9t%C3%A9")}});
}

}  // namespace
}  // namespace kestrow
