#include "platform/linux/udisks_smart_status.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QList>
#include <QStringList>

#include <array>
#include <filesystem>
#include <utility>

#include "support/ascii_case.h"

namespace kestrow {
namespace {

const QString kService = QStringLiteral("org.freedesktop.UDisks2");
const QString kRoot = QStringLiteral("/org/freedesktop/UDisks2");
const QString kBlock = QStringLiteral("org.freedesktop.UDisks2.Block");
const QString kFilesystem = QStringLiteral("org.freedesktop.UDisks2.Filesystem");
const QString kAta = QStringLiteral("org.freedesktop.UDisks2.Drive.Ata");
const QString kNvme = QStringLiteral("org.freedesktop.UDisks2.NVMe.Controller");
const QString kNoObject = QStringLiteral("/");

// An object path property; "/" when there is none.
QString pathOf(const QVariant& value) {
    if (value.canConvert<QDBusObjectPath>()) return value.value<QDBusObjectPath>().path();
    return kNoObject;
}

// The mount points of a file system, without the NUL that ends each.
QStringList mountPointsOf(const QVariantMap& filesystem) {
    const QVariant value = filesystem.value(QStringLiteral("MountPoints"));
    QList<QByteArray> points;
    if (value.canConvert<QDBusArgument>())
        value.value<QDBusArgument>() >> points;
    else
        points = value.value<QList<QByteArray>>();
    QStringList out;
    for (QByteArray point : points) {
        while (point.endsWith('\0')) point.chop(1);
        if (!point.isEmpty()) out << QString::fromUtf8(point);
    }
    return out;
}

// An NVMe controller's critical warnings, in the words smartctl's are given in.
std::string nvmeWarnings(const QStringList& warnings) {
    static const std::array<std::pair<const char*, const char*>, 6> kWords = {{
        {"spare", "spare capacity low"},
        {"temperature", "temperature out of range"},
        {"degraded", "reliability degraded"},
        {"readonly", "read-only"},
        {"volatile_mem", "backup power failed"},
        {"pmr_readonly", "persistent memory read-only"},
    }};
    std::string words;
    for (const QString& warning : warnings) {
        std::string word = warning.toStdString();
        for (const auto& [name, text] : kWords) {
            if (word == name) word = text;
        }
        if (!words.empty()) words += ", ";
        words += word;
    }
    return words;
}

}  // namespace

UdisksSmartStatus::UdisksSmartStatus(QDBusConnection bus, SmartStatus& fallback,
                                     int timeLimitMilliseconds)
    : bus_(std::move(bus)), fallback_(fallback), timeLimitMilliseconds_(timeLimitMilliseconds) {}

std::optional<UdisksSmartStatus::Objects> UdisksSmartStatus::objects() const {
    if (!bus_.isConnected()) return std::nullopt;
    const QDBusMessage call = QDBusMessage::createMethodCall(
        kService, kRoot, QStringLiteral("org.freedesktop.DBus.ObjectManager"),
        QStringLiteral("GetManagedObjects"));
    const QDBusMessage reply = bus_.call(call, QDBus::Block, timeLimitMilliseconds_);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty() ||
        reply.signature() != QStringLiteral("a{oa{sa{sv}}}"))
        return std::nullopt;
    const QDBusArgument tree = reply.arguments().constFirst().value<QDBusArgument>();
    Objects objects;
    tree.beginMap();
    while (!tree.atEnd()) {
        QDBusObjectPath path;
        QMap<QString, QVariantMap> interfaces;
        tree.beginMapEntry();
        tree >> path >> interfaces;
        tree.endMapEntry();
        objects.insert(path.path(), interfaces);
    }
    tree.endMap();
    return objects;
}

std::optional<SmartStatus::Verdict> UdisksSmartStatus::verdictOfBlock(const Objects& objects,
                                                                      const QString& block) {
    QString current = block;
    // An unlocked encrypted volume has no drive of its own; the block it was opened from has.
    for (int depth = 0; depth < 8 && objects.contains(current); ++depth) {
        const QVariantMap properties = objects.value(current).value(kBlock);
        const QString drive = pathOf(properties.value(QStringLiteral("Drive")));
        if (drive != kNoObject) {
            if (!objects.contains(drive)) return std::nullopt;
            return verdictOfDrive(objects.value(drive));
        }
        current = pathOf(properties.value(QStringLiteral("CryptoBackingDevice")));
    }
    return std::nullopt;
}

SmartStatus::Verdict UdisksSmartStatus::verdictOfDrive(const QMap<QString, QVariantMap>& drive) {
    if (drive.contains(kNvme)) {
        const QVariantMap nvme = drive.value(kNvme);
        if (nvme.value(QStringLiteral("SmartUpdated")).toULongLong() == 0)
            return {std::nullopt, kNoAnswer};
        const QStringList warnings =
            nvme.value(QStringLiteral("SmartCriticalWarning")).toStringList();
        if (warnings.isEmpty()) return "Verified";
        return "Failing: " + nvmeWarnings(warnings);
    }
    if (drive.contains(kAta)) {
        const QVariantMap ata = drive.value(kAta);
        if (!ata.value(QStringLiteral("SmartSupported")).toBool())
            return {"Not Supported", kNoSmart};
        if (!ata.value(QStringLiteral("SmartEnabled")).toBool())
            return {std::nullopt, kSmartTurnedOff};
        if (ata.value(QStringLiteral("SmartUpdated")).toULongLong() == 0)
            return {std::nullopt, kNoAnswer};
        return ata.value(QStringLiteral("SmartFailing")).toBool() ? "Failing" : "Verified";
    }
    // USB sticks, card readers, virtual disks.
    return {"Not Supported", kNoSmart};
}

SmartStatus::Verdict UdisksSmartStatus::bootDisk() {
    const auto tree = objects();
    if (!tree) return fallback_.bootDisk();
    for (auto object = tree->cbegin(); object != tree->cend(); ++object) {
        if (!object->contains(kFilesystem)) continue;
        if (!mountPointsOf(object->value(kFilesystem)).contains(QStringLiteral("/"))) continue;
        if (auto verdict = verdictOfBlock(*tree, object.key())) return std::move(*verdict);
    }
    return fallback_.bootDisk();
}

SmartStatus::BackupDisk UdisksSmartStatus::backupDisk(const Destination& destination) {
    const auto tree = objects();
    if (!tree) return fallback_.backupDisk(destination);
    std::vector<std::string> uuids;
    for (const std::string& uuid :
         destination.destinationUUIDs.value_or(std::vector<std::string>{}))
        uuids.push_back(asciiLowercase(uuid));
    for (auto object = tree->cbegin(); object != tree->cend(); ++object) {
        if (!object->contains(kFilesystem)) continue;
        const QStringList points = mountPointsOf(object->value(kFilesystem));
        if (points.isEmpty()) continue;
        const bool named = !destination.volumeName.empty() &&
                           std::any_of(points.begin(), points.end(), [&](const QString& point) {
                               return std::filesystem::path(point.toStdString()).filename() ==
                                      destination.volumeName;
                           });
        const std::string uuid = asciiLowercase(
            object->value(kBlock).value(QStringLiteral("IdUUID")).toString().toStdString());
        const bool identified =
            !uuid.empty() && std::find(uuids.begin(), uuids.end(), uuid) != uuids.end();
        if (!named && !identified) continue;
        if (auto verdict = verdictOfBlock(*tree, object.key())) return {true, std::move(*verdict)};
        break;
    }
    return fallback_.backupDisk(destination);
}

}  // namespace kestrow
