#include "platform/linux/journal_log_sink.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QUuid>

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>

namespace kestrow {
namespace {

// Leaves a bound Unix socket at `path`, as journald's socket is.
bool bindSocket(const std::string& path) {
    const int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    const bool bound = ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    ::close(fd);
    return bound;
}

TEST(JournalLogSink, SystemSinkIsTheJournalOnlyWhenItsSocketIsThere) {
    QTemporaryDir folder;
    ASSERT_TRUE(folder.isValid());
    const std::filesystem::path root = folder.path().toStdString();

    const auto missing = makeSystemLogSink(root / "socket");
    EXPECT_NE(dynamic_cast<StderrLogSink*>(missing.get()), nullptr);

    // A plain file where the socket should be is no journal either.
    QFile plain(QString::fromStdString((root / "plain").string()));
    ASSERT_TRUE(plain.open(QIODevice::WriteOnly));
    plain.close();
    const auto notSocket = makeSystemLogSink(root / "plain");
    EXPECT_NE(dynamic_cast<StderrLogSink*>(notSocket.get()), nullptr);

    ASSERT_TRUE(bindSocket((root / "socket").string()));
    const auto present = makeSystemLogSink(root / "socket");
    EXPECT_NE(dynamic_cast<JournalLogSink*>(present.get()), nullptr);
}

// The private journald runs in a mount namespace of its own with a tmpfs over /run, so the
// test binary, started inside it, finds the journal socket at its usual place.
constexpr const char* kPrivateJournalScript = R"SH(
set -eu
mount -t tmpfs tmpfs /run
mkdir -p /run/systemd/journal /run/log/journal
/lib/systemd/systemd-journald >/dev/null 2>&1 &
journald=$!
trap 'kill $journald 2>/dev/null; wait $journald 2>/dev/null || true' EXIT
for i in $(seq 1 400); do [ -S /run/systemd/journal/socket ] && break; sleep 0.025; done
[ -S /run/systemd/journal/socket ] || { echo "journald did not start" >&2; exit 3; }
"$1" --kestrow-child journal "$2"
for i in $(seq 1 400); do
  found=$(journalctl -D /run/log/journal --no-pager -o cat SYSLOG_IDENTIFIER=kestrow 2>/dev/null | grep -c "$2" || true)
  [ "$found" -ge 5 ] && break
  sleep 0.025
done
journalctl -D /run/log/journal --no-pager -o json SYSLOG_IDENTIFIER=kestrow
)SH";

TEST(JournalLogSink, EntriesReachARealJournaldWithTheirFields) {
    if (::geteuid() != 0) GTEST_SKIP() << "mounting a private /run for journald needs root";
    if (QStandardPaths::findExecutable("unshare").isEmpty() ||
        QStandardPaths::findExecutable("journalctl").isEmpty() ||
        !QFile::exists("/lib/systemd/systemd-journald")) {
        GTEST_SKIP() << "needs unshare, journalctl and /lib/systemd/systemd-journald";
    }
    if (QProcess::execute("unshare", {"-m", "--propagation", "private", "true"}) != 0) {
        GTEST_SKIP() << "this machine does not allow a private mount namespace";
    }

    const QString token = QUuid::createUuid().toString(QUuid::WithoutBraces);
    QProcess run;
    run.start("unshare",
              {"-m", "--propagation", "private", "/bin/bash", "-c", kPrivateJournalScript, "bash",
               QCoreApplication::applicationFilePath(), token});
    ASSERT_TRUE(run.waitForFinished(30'000)) << "the private journald run did not end";
    ASSERT_EQ(run.exitCode(), 0) << run.readAllStandardError().toStdString();

    std::map<std::string, QJsonObject> entries;  // by level name
    for (const QByteArray& line : run.readAllStandardOutput().split('\n')) {
        const QJsonObject entry = QJsonDocument::fromJson(line).object();
        const QString message = entry.value("MESSAGE").toString();
        if (!message.endsWith(token)) continue;
        entries[message.section(' ', 0, 0).toStdString()] = entry;
    }
    const std::map<std::string, std::string> priorities{
        {"debug", "7"}, {"info", "6"}, {"notice", "5"}, {"error", "3"}, {"fault", "2"}};
    ASSERT_EQ(entries.size(), priorities.size());
    for (const auto& [level, priority] : priorities) {
        const QJsonObject& entry = entries[level];
        EXPECT_EQ(entry.value("PRIORITY").toString().toStdString(), priority) << level;
        EXPECT_EQ(entry.value("SYSLOG_IDENTIFIER").toString(), "kestrow") << level;
        EXPECT_EQ(entry.value("KESTROW_SUBSYSTEM").toString(), "bar.vemb.orvel") << level;
        EXPECT_EQ(entry.value("KESTROW_CATEGORY").toString(), "app") << level;
        // The sink's own source location would be noise in every entry.
        EXPECT_FALSE(entry.contains("CODE_FILE")) << level;
    }
}

}  // namespace
}  // namespace kestrow
