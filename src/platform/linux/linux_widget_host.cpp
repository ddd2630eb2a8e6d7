#include "platform/linux/linux_widget_host.h"

#include <sys/stat.h>
#include <unistd.h>

#include <QDBusMessage>

#include <array>

namespace kestrow {
namespace {

std::optional<WallTime> modificationTime(const char* path) {
    struct stat info {};
    if (::stat(path, &info) != 0) return std::nullopt;
    return WallTime{std::chrono::duration_cast<WallTime::duration>(
        std::chrono::seconds(info.st_mtim.tv_sec) +
        std::chrono::nanoseconds(info.st_mtim.tv_nsec))};
}

}  // namespace

LinuxWidgetHost::LinuxWidgetHost(QDBusConnection connection, std::filesystem::path executableLink)
    : connection_(std::move(connection)), executableLink_(std::move(executableLink)) {}

std::optional<WallTime> LinuxWidgetHost::appBinaryReplaced() const {
    // An update renames a new binary over the old one while we keep running the old inode: the
    // link then names the path with " (deleted)" appended, and following it would give the old
    // file's time. The file now at that path is the one that tells when the binary was replaced.
    std::array<char, 4096> target{};
    const ssize_t length = ::readlink(executableLink_.c_str(), target.data(), target.size() - 1);
    if (length > 0) {
        std::string path(target.data(), static_cast<std::size_t>(length));
        constexpr std::string_view deleted = " (deleted)";
        if (path.size() > deleted.size() && path.ends_with(deleted)) {
            path.resize(path.size() - deleted.size());
        }
        if (auto replaced = modificationTime(path.c_str())) return replaced;
    }
    return modificationTime(executableLink_.c_str());
}

void LinuxWidgetHost::reloadTimelines(std::string_view kind) {
    if (!connection_.isConnected()) return;
    auto signal = QDBusMessage::createSignal(QStringLiteral("/bar/vemb/orvel/Widgets"),
                                             QStringLiteral("bar.vemb.orvel.Widgets"),
                                             QStringLiteral("TimelinesChanged"));
    signal << QString::fromUtf8(kind.data(), static_cast<qsizetype>(kind.size()));
    connection_.send(signal);
}

}  // namespace kestrow
