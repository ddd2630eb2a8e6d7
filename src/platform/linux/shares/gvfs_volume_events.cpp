#include "platform/linux/shares/gvfs_volume_events.h"

#include <QDBusArgument>
#include <QDBusObjectPath>
#include <QDBusVariant>

#include "platform/linux/shares/gvfs_mount_record.h"

namespace kestrow {
namespace {

const QString kTrackerPath = QStringLiteral("/org/gtk/vfs/mounttracker");
const QString kTrackerInterface = QStringLiteral("org.gtk.vfs.MountTracker");
const QString kUnmounted = QStringLiteral("Unmounted");
const QString kMountSignature = QStringLiteral("(sossssssbay(aya{sv})ay)");

std::string bytesText(QByteArray bytes) {
    while (!bytes.isEmpty() && bytes.back() == '\0') bytes.chop(1);
    return bytes.toStdString();
}

// Reads the fields the mount path depends on; the signature was checked before.
GvfsMountRecord recordOf(const QDBusArgument& argument) {
    GvfsMountRecord record;
    QString text;
    QDBusObjectPath path;
    QByteArray bytes;
    argument.beginStructure();
    argument >> text;
    record.dbusId = text.toStdString();
    argument >> path;
    record.objectPath = path.path().toStdString();
    argument >> text;  // display name
    argument >> text;
    record.stableName = text.toStdString();
    for (int skipped = 0; skipped < 4; ++skipped) argument >> text;
    argument >> record.userVisible;
    argument >> bytes;
    record.fuseMountpoint = bytesText(bytes);
    argument.beginStructure();
    argument >> bytes;
    record.specPrefix = bytesText(bytes);
    argument.beginMap();
    while (!argument.atEnd()) {
        QString key;
        QDBusVariant value;
        argument.beginMapEntry();
        argument >> key >> value;
        argument.endMapEntry();
        record.specItems.emplace_back(key.toStdString(), bytesText(value.variant().toByteArray()));
    }
    argument.endMap();
    argument.endStructure();
    argument >> bytes;  // default location
    argument.endStructure();
    return record;
}

}  // namespace

GvfsVolumeEvents::GvfsVolumeEvents(QDBusConnection sessionBus, std::string volumesRoot)
    : bus_(std::move(sessionBus)), volumesRoot_(std::move(volumesRoot)) {}

GvfsVolumeEvents::~GvfsVolumeEvents() {
    stop();
}

void GvfsVolumeEvents::start(std::function<void(std::optional<std::string>)> unmounted) {
    unmounted_ = std::move(unmounted);
    if (listening_) return;
    // Any sender: gvfsd's unique name changes when it restarts.
    listening_ = bus_.connect(QString(), kTrackerPath, kTrackerInterface, kUnmounted, this,
                              SLOT(onUnmounted(QDBusMessage)));
}

void GvfsVolumeEvents::stop() {
    if (listening_)
        bus_.disconnect(QString(), kTrackerPath, kTrackerInterface, kUnmounted, this,
                        SLOT(onUnmounted(QDBusMessage)));
    listening_ = false;
    unmounted_ = nullptr;
}

std::optional<std::string> GvfsVolumeEvents::mountedOnOf(const QDBusMessage& message,
                                                         const std::string& volumesRoot) {
    if (message.signature() != kMountSignature || message.arguments().size() != 1)
        return std::nullopt;
    const auto argument = message.arguments().front().value<QDBusArgument>();
    const auto entry = gvfsMountEntry(recordOf(argument), volumesRoot);
    if (!entry || entry->mountedOn.empty()) return std::nullopt;
    return entry->mountedOn;
}

void GvfsVolumeEvents::onUnmounted(const QDBusMessage& message) {
    if (unmounted_) unmounted_(mountedOnOf(message, volumesRoot_));
}

}  // namespace kestrow
