#pragma once

#include <QDBusConnection>
#include <QObject>

#include <optional>

#include "platform/network_path.h"

namespace kestrow {

// "Satisfied" from NetworkManager's State: connected-local (50) or better, or unknown (0).
// Without NetworkManager the network counts as there, so shares still get their chance.
class NetworkManagerPathMonitor final : public QObject, public NetworkPathMonitor {
    Q_OBJECT
public:
    explicit NetworkManagerPathMonitor(QDBusConnection systemBus);
    ~NetworkManagerPathMonitor() override;

    void start(std::function<void(bool satisfied)> changed) override;
    void stop() override;

    static bool satisfied(std::optional<std::uint32_t> state);

private Q_SLOTS:
    void stateChanged(uint state);

private:
    std::optional<std::uint32_t> readState();
    void report(bool satisfied);

    QDBusConnection bus_;
    bool started_ = false;
    std::optional<bool> last_;
    std::function<void(bool)> changed_;
};

}  // namespace kestrow
