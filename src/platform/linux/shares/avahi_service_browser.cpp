#include "platform/linux/shares/avahi_service_browser.h"

#include <QDBusMessage>

#include <algorithm>

namespace kestrow {
namespace {

constexpr int kAnyInterface = -1;
constexpr int kAnyProtocol = -1;
constexpr int kAddressIndex = 7;

}  // namespace

AvahiServiceBrowser::AvahiServiceBrowser(QDBusConnection systemBus) : bus_(std::move(systemBus)) {}

std::optional<std::string> AvahiServiceBrowser::find(const std::string& baseName,
                                                     double timeoutSeconds) {
    if (baseName.empty() || timeoutSeconds <= 0 || !bus_.isConnected()) return std::nullopt;
    auto call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.Avahi"), QStringLiteral("/"),
        QStringLiteral("org.freedesktop.Avahi.Server"), QStringLiteral("ResolveService"));
    // mDNS names compare case-insensitively, so the instance is found however it was typed.
    call << kAnyInterface << kAnyProtocol << QString::fromStdString(baseName)
         << QStringLiteral("_smb._tcp") << QStringLiteral("local") << kAnyProtocol << 0u;
    const int limitMs = std::max(1, static_cast<int>(timeoutSeconds * 1000.0));
    const QDBusMessage reply = bus_.call(call, QDBus::Block, limitMs);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().size() <= kAddressIndex)
        return std::nullopt;
    const QString address = reply.arguments().at(kAddressIndex).toString();
    if (address.isEmpty()) return std::nullopt;
    return address.toStdString();
}

}  // namespace kestrow
