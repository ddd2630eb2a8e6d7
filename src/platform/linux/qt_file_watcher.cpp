#include "platform/linux/qt_file_watcher.h"

#include <sys/stat.h>

#include <QFileSystemWatcher>
#include <QObject>

#include <optional>
#include <tuple>

namespace kestrow {
namespace {

// What tells one version of a file from the next. A change in the folder that leaves this alone
// was about some other file.
struct Stamp {
    bool exists = false;
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    std::int64_t modifiedNanoseconds = 0;
    std::int64_t changedNanoseconds = 0;
    bool operator==(const Stamp&) const = default;

    static Stamp of(const std::filesystem::path& file) {
        struct stat info {};
        if (::stat(file.c_str(), &info) != 0) return {};
        return {true,
                info.st_dev,
                info.st_ino,
                info.st_size,
                std::int64_t{info.st_mtim.tv_sec} * 1'000'000'000 + info.st_mtim.tv_nsec,
                std::int64_t{info.st_ctim.tv_sec} * 1'000'000'000 + info.st_ctim.tv_nsec};
    }
};

class QtWatch final : public FileWatcher::Watch {
public:
    QtWatch(std::filesystem::path file, std::function<void()> changed)
        : file_(std::move(file)),
          folder_(file_.parent_path().empty() ? "." : file_.parent_path()),
          changed_(std::move(changed)),
          stamp_(Stamp::of(file_)) {
        watcher_.addPath(QString::fromStdString(folder_.string()));
        watchFile();
        QObject::connect(&watcher_, &QFileSystemWatcher::fileChanged, [this] {
            // A file replaced or removed drops out of the watch; take up whatever now has the
            // name.
            watchFile();
            report(true);
        });
        QObject::connect(&watcher_, &QFileSystemWatcher::directoryChanged, [this] {
            watchFile();
            report(false);
        });
    }

private:
    void watchFile() {
        const QString path = QString::fromStdString(file_.string());
        if (!watcher_.files().contains(path) && std::filesystem::exists(file_))
            watcher_.addPath(path);
    }

    void report(bool aboutTheFile) {
        const Stamp now = Stamp::of(file_);
        if (!aboutTheFile && now == stamp_) return;
        stamp_ = now;
        changed_();
    }

    std::filesystem::path file_;
    std::filesystem::path folder_;
    std::function<void()> changed_;
    Stamp stamp_;
    QFileSystemWatcher watcher_;  // last: destroyed first, so no signal reaches a half-gone watch
};

}  // namespace

std::unique_ptr<FileWatcher::Watch> QtFileWatcher::watch(const std::filesystem::path& file,
                                                         std::function<void()> changed) {
    return std::make_unique<QtWatch>(file, std::move(changed));
}

}  // namespace kestrow
