#pragma once

#include <QDBusConnection>
#include <QMap>
#include <QString>
#include <QVariantMap>

#include <optional>

#include "platform/smart_status.h"

namespace kestrow {

// Reads the disks' SMART verdict from UDisks2 on the system bus, which any user may ask: the
// block device mounted at "/" (or at the backup volume), through an encryption layer to the
// block below it, then its drive. An ATA drive answers with SmartSupported, SmartEnabled and
// SmartFailing, an NVMe controller with SmartCriticalWarning:
//   ATA not supported, or a drive with neither interface   "Not Supported" (no SMART on it)
//   ATA supported but turned off                           no verdict ("SMART is turned off")
//   ATA or NVMe never read by UDisks2 yet                  no verdict (the disk did not answer)
//   ATA failing                                            "Failing"
//   NVMe with critical warnings                            "Failing: " and the warnings in words
//   otherwise                                              "Verified"
// When UDisks2 does not answer, or does not know the disk (a root on LVM, a volume it does not
// track), `fallback` is asked instead. Calls block; they may run on any thread.
class UdisksSmartStatus final : public SmartStatus {
public:
    static constexpr std::string_view kSmartTurnedOff = "SMART is turned off on this disk";

    // A disk that has spun down may take some seconds to be read.
    UdisksSmartStatus(QDBusConnection bus, SmartStatus& fallback,
                      int timeLimitMilliseconds = 10000);

    Verdict bootDisk() override;
    BackupDisk backupDisk(const Destination& destination) override;

private:
    // Object path → interface → properties, as GetManagedObjects gives them.
    using Objects = QMap<QString, QMap<QString, QVariantMap>>;

    std::optional<Objects> objects() const;
    // The verdict of the drive under this block device, or nothing when it has no drive.
    static std::optional<Verdict> verdictOfBlock(const Objects& objects, const QString& block);
    static Verdict verdictOfDrive(const QMap<QString, QVariantMap>& drive);

    QDBusConnection bus_;
    SmartStatus& fallback_;
    int timeLimitMilliseconds_;
};

}  // namespace kestrow
