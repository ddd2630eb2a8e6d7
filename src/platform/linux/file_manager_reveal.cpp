#include "platform/linux/file_manager_reveal.h"

#include <QDBusMessage>
#include <QString>
#include <QStringList>
#include <QUrl>

namespace kestrow {
namespace {

// A file manager that is slow to start still gets a moment; the menu waits on nothing longer.
constexpr int kReplyLimitMs = 3'000;

}  // namespace

bool FileManagerReveal::reveal(const std::filesystem::path& path) const {
    if (!bus_.isConnected()) return false;
    auto call = QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.FileManager1"),
                                               QStringLiteral("/org/freedesktop/FileManager1"),
                                               QStringLiteral("org.freedesktop.FileManager1"),
                                               QStringLiteral("ShowItems"));
    const QString uri =
        QUrl::fromLocalFile(QString::fromStdString(path.string())).toString(QUrl::FullyEncoded);
    // The second argument is the startup-notification id; there is none to hand on.
    call << QStringList{uri} << QString();
    const QDBusMessage reply = bus_.call(call, QDBus::Block, kReplyLimitMs);
    return reply.type() == QDBusMessage::ReplyMessage;
}

}  // namespace kestrow
