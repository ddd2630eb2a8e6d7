#pragma once

#include <QDBusConnection>

#include "platform/share_network.h"

namespace kestrow {

// Finds an announced file server through Avahi on the system bus by resolving the "_smb._tcp"
// instance of that name in ".local" to its address. Blocking calls on its own connection, so it
// works from a worker thread; without Avahi the answer is "not found" at once.
class AvahiServiceBrowser final : public ServiceBrowser {
public:
    explicit AvahiServiceBrowser(QDBusConnection systemBus);
    std::optional<std::string> find(const std::string& baseName, double timeoutSeconds) override;

private:
    QDBusConnection bus_;
};

}  // namespace kestrow
