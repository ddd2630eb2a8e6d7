#pragma once

#include <QDBusConnection>
#include <QObject>

#include <functional>
#include <optional>

#include "platform/network_path.h"

class QDBusServiceWatcher;

namespace kestrow {

// "Satisfied" while NetworkManager says the machine is connected at least to its local network
// (state 50 or more) or cannot tell (0). Without NetworkManager on the bus the network counts as
// there: a desktop without it still reaches its servers, and a wrong "no network" would stop
// every reconnect.
class NetworkManagerPathMonitor final : public QObject, public NetworkPathMonitor {
    Q_OBJECT
public:
    explicit NetworkManagerPathMonitor(QDBusConnection systemBus, QObject* parent = nullptr);
    ~NetworkManagerPathMonitor() override;

    void start(std::function<void(bool satisfied)> changed) override;
    void stop() override;

    static bool satisfied(unsigned state) { return state == 0 || state >= 50; }

private Q_SLOTS:
    void onStateChanged(uint state);

private:
    void readNow();
    void report(bool satisfied);

    QDBusConnection bus_;
    QDBusServiceWatcher* watcher_ = nullptr;
    std::function<void(bool)> changed_;
    std::optional<bool> last_;
};

}  // namespace kestrow
