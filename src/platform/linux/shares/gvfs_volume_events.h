#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>

#include <functional>
#include <optional>
#include <string>

#include "platform/volume_events.h"

namespace kestrow {

// Unmounts announced by gvfsd's mount tracker (its "Unmounted" signal on the session bus). The
// signal is delivered by Qt's D-Bus on the thread that owns this object, the main thread, so
// the callback runs there.
class GvfsVolumeEvents final : public QObject, public VolumeEvents {
    Q_OBJECT
public:
    explicit GvfsVolumeEvents(QDBusConnection sessionBus, std::string volumesRoot);
    ~GvfsVolumeEvents() override;

    void start(std::function<void(std::optional<std::string>)> unmounted) override;
    void stop() override;

    // The mount path an "Unmounted" signal names, when it can be told.
    static std::optional<std::string> mountedOnOf(const QDBusMessage& message,
                                                  const std::string& volumesRoot);

private Q_SLOTS:
    void onUnmounted(const QDBusMessage& message);

private:
    QDBusConnection bus_;
    std::string volumesRoot_;
    std::function<void(std::optional<std::string>)> unmounted_;
    bool listening_ = false;
};

}  // namespace kestrow
