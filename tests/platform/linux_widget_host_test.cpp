#include "platform/linux/linux_widget_host.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <systemd/sd-bus.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "private_session_bus.h"

namespace kestrow {
namespace {

using kestrow::testing::PrivateSessionBus;

// The listening side, on a separate connection made with another D-Bus library, as a panel
// applet would have it.
class TimelineListener {
public:
    explicit TimelineListener(const QString& address) {
        if (sd_bus_new(&bus_) < 0) return;
        sd_bus_set_address(bus_, address.toUtf8().constData());
        sd_bus_set_bus_client(bus_, 1);
        if (sd_bus_start(bus_) < 0) return;
        ready_ =
            sd_bus_match_signal(bus_, nullptr, nullptr, "/bar/vemb/orvel/Widgets",
                                "bar.vemb.orvel.Widgets", "TimelinesChanged", &onSignal, this) >= 0;
    }
    ~TimelineListener() { sd_bus_flush_close_unref(bus_); }
    TimelineListener(const TimelineListener&) = delete;
    TimelineListener& operator=(const TimelineListener&) = delete;

    bool ready() const { return ready_; }
    const std::vector<std::string>& kinds() const { return kinds_; }

    // Reads from the bus, while Qt's side keeps running, until `count` signals arrived.
    bool waitFor(std::size_t count) {
        const QDeadlineTimer deadline(5000);
        while (kinds_.size() < count && !deadline.hasExpired()) {
            QCoreApplication::processEvents();
            while (sd_bus_process(bus_, nullptr) > 0) {
            }
            sd_bus_wait(bus_, 10'000);
        }
        return kinds_.size() >= count;
    }

private:
    static int onSignal(sd_bus_message* message, void* self, sd_bus_error* /*error*/) {
        const char* kind = nullptr;
        if (sd_bus_message_read(message, "s", &kind) >= 0) {
            static_cast<TimelineListener*>(self)->kinds_.emplace_back(kind);
        }
        return 0;
    }

    sd_bus* bus_ = nullptr;
    bool ready_ = false;
    std::vector<std::string> kinds_;
};

TEST(LinuxWidgetHost, ReloadTimelinesIsASignalOtherConnectionsReceive) {
    PrivateSessionBus bus;
    ASSERT_TRUE(bus.isRunning()) << bus.errorText().toStdString();
    TimelineListener listener(bus.address());
    ASSERT_TRUE(listener.ready());

    LinuxWidgetHost host(bus.connect());
    host.reloadTimelines("backup-status");
    host.reloadTimelines("caffeine");
    ASSERT_TRUE(listener.waitFor(2));
    EXPECT_EQ(listener.kinds(), (std::vector<std::string>{"backup-status", "caffeine"}));

    // No widget processes on Linux, and without a bus the signal goes nowhere, quietly.
    EXPECT_TRUE(host.runningWidgetProcesses().empty());
    QTemporaryDir folder;
    const auto noBus = QDBusConnection::connectToBus("unix:path=" + folder.filePath("none"),
                                                     "kestrow-test-widgets-no-bus");
    LinuxWidgetHost(noBus).reloadTimelines("backup-status");
    QDBusConnection::disconnectFromBus("kestrow-test-widgets-no-bus");
}

// Copies `from` to `to` with the given modification time (seconds since the epoch).
bool copyWithTime(const QString& from, const QString& to, time_t modified) {
    if (!QFile::copy(from, to)) return false;
    QFile::setPermissions(to, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    const timespec times[2] = {{modified, 0}, {modified, 0}};
    return ::utimensat(AT_FDCWD, to.toUtf8().constData(), times, 0) == 0;
}

TEST(LinuxWidgetHost, BinaryReplacedIsWhenTheFileAtTheProgramsPathChanged) {
    QTemporaryDir folder;
    const QString cat = QStandardPaths::findExecutable("cat");
    ASSERT_FALSE(cat.isEmpty());
    const QString app = folder.filePath("app");
    const time_t installed = 1'700'000'000;
    const time_t updated = 1'700'086'400;
    ASSERT_TRUE(copyWithTime(cat, app, installed));

    QProcess running;  // keeps running until its input closes
    running.start(app, {});
    ASSERT_TRUE(running.waitForStarted());
    const std::string link = "/proc/" + std::to_string(running.processId()) + "/exe";
    const LinuxWidgetHost host(QDBusConnection(QString()), link);
    EXPECT_EQ(host.appBinaryReplaced(), std::chrono::system_clock::from_time_t(installed));

    // An update renames a new file over the program while the old one keeps running.
    ASSERT_TRUE(copyWithTime(cat, folder.filePath("app.new"), updated));
    ASSERT_EQ(::rename(folder.filePath("app.new").toUtf8().constData(), app.toUtf8().constData()),
              0);
    EXPECT_EQ(host.appBinaryReplaced(), std::chrono::system_clock::from_time_t(updated));

    running.closeWriteChannel();
    EXPECT_TRUE(running.waitForFinished());

    // The default looks at this very process.
    struct stat self {};
    ASSERT_EQ(::stat(QCoreApplication::applicationFilePath().toUtf8().constData(), &self), 0);
    const auto own = LinuxWidgetHost(QDBusConnection(QString())).appBinaryReplaced();
    ASSERT_TRUE(own.has_value());
    EXPECT_EQ(std::chrono::system_clock::to_time_t(*own), self.st_mtim.tv_sec);
}

}  // namespace
}  // namespace kestrow
