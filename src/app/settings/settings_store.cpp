#include "app/settings/settings_store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "support/atomic_file.h"
#include "support/file_set_aside.h"
#include "support/iso_date.h"

namespace kestrow {
namespace {

// Far beyond any real settings file (a Time Machine snapshot with years of dates is well under
// a megabyte), and small enough that a runaway file is refused rather than read into memory.
constexpr std::size_t kLargestSettingsFile = 16 * 1024 * 1024;

// Serialises read-modify-write cycles with other Kestrow processes (the agent and the command
// line) by locking the settings folder itself, so no lock file is left lying around.
// A folder that cannot be opened for reading (mode 0300) cannot be locked; the write is then
// refused with the reason rather than made without the lock, which could lose another
// process's change.
class FolderLock {
public:
    explicit FolderLock(const std::filesystem::path& folder)
        : fd_(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        if (fd_ < 0) {
            problem_ = fmt::format("cannot lock the settings folder {}: {}", folder.string(),
                                   std::strerror(errno));
            return;
        }
        int result = 0;
        while ((result = ::flock(fd_, LOCK_EX)) != 0 && errno == EINTR) {
        }
        if (result != 0) {
            problem_ = fmt::format("cannot lock the settings folder {}: {}", folder.string(),
                                   std::strerror(errno));
        }
    }
    ~FolderLock() {
        if (fd_ >= 0) ::close(fd_);  // closing releases the lock
    }
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;

    // Why the lock is not held; nothing when it is.
    const std::optional<std::string>& problem() const { return problem_; }

private:
    int fd_;
    std::optional<std::string> problem_;
};

}  // namespace

SettingsStore::SettingsStore(std::filesystem::path file, Logger log, OnUnreadable onUnreadable)
    : file_(std::move(file)), log_(log) {
    if (onUnreadable == OnUnreadable::setAside) setAsideIfUnreadable();
}

std::optional<std::filesystem::path> SettingsStore::setAsideIfUnreadable() {
    std::lock_guard lock(mutex_);
    current();
    if (!cachedProblem_) return std::nullopt;
    const FolderLock folderLock(file_.parent_path());
    if (folderLock.problem()) {
        log_.error("Settings file {} is unreadable and stays where it is: {}", file_.string(),
                   *folderLock.problem());
        return std::nullopt;
    }
    std::string error;
    return setAsideLocked(&error);
}

std::optional<std::filesystem::path> SettingsStore::setAsideLocked(std::string* error) {
    cachedStamp_.reset();
    current();  // under the lock: another process may have replaced the file already
    if (!cachedProblem_) return std::nullopt;
    const std::string problem = *cachedProblem_;
    auto aside = setFileAside(file_, error);
    if (aside) {
        log_.error(
            "Settings file {} could not be read ({}); set it aside as {} and went on "
            "with defaults",
            file_.string(), problem, aside->string());
    }
    cachedStamp_.reset();
    current();
    return aside;
}

const PlistDict& SettingsStore::current() const {
    FileStamp stamp;
    struct stat info {};
    if (::stat(file_.c_str(), &info) == 0) {
        stamp = FileStamp{
            info.st_dev, info.st_ino,
            static_cast<std::int64_t>(info.st_mtim.tv_sec) * 1'000'000'000 + info.st_mtim.tv_nsec,
            info.st_size};
    }
    if (cachedStamp_ == stamp) return cached_;

    cached_.clear();
    cachedProblem_.reset();
    cachedStamp_ = stamp;
    if (stamp.size < 0) return cached_;  // no file yet: nothing stored
    std::string error;
    const auto bytes = readFile(file_, &error, kLargestSettingsFile);
    if (bytes && bytes->empty()) return cached_;  // nothing in it to keep
    const auto parsed = bytes ? PlistValue::parse(*bytes) : std::nullopt;
    if (parsed && parsed->asDict() != nullptr) {
        cached_ = *parsed->asDict();
        unreadableNote_.reset();
    } else {
        cachedProblem_ = bytes ? "not a settings property list, or nested too deeply" : error;
        log_.once(unreadableNote_, LogLevel::error,
                  "Settings file " + file_.string() + " is unreadable (" + *cachedProblem_ +
                      "); reading it as empty until the next write sets it aside");
    }
    return cached_;
}

std::optional<PlistValue> SettingsStore::value(std::string_view key) const {
    std::lock_guard lock(mutex_);
    const PlistDict& dict = current();
    const auto it = dict.find(key);
    if (it == dict.end()) return std::nullopt;
    return it->second;
}

PlistDict SettingsStore::contents() const {
    std::lock_guard lock(mutex_);
    return current();
}

std::optional<bool> SettingsStore::boolValue(std::string_view key) const {
    const auto v = value(key);
    return v && v->asBool() ? std::optional(*v->asBool()) : std::nullopt;
}

std::optional<std::int64_t> SettingsStore::integerValue(std::string_view key) const {
    const auto v = value(key);
    if (!v) return std::nullopt;
    if (const auto* i = v->asInteger()) return *i;
    if (const auto* r = v->asReal();
        r && std::isfinite(*r) && std::trunc(*r) == *r && std::fabs(*r) < 9.0e18) {
        return static_cast<std::int64_t>(*r);
    }
    return std::nullopt;
}

std::optional<double> SettingsStore::realValue(std::string_view key) const {
    const auto v = value(key);
    if (!v) return std::nullopt;
    const auto number = v->asNumber();
    return number && std::isfinite(*number) ? number : std::nullopt;
}

std::optional<std::string> SettingsStore::stringValue(std::string_view key) const {
    const auto v = value(key);
    return v && v->asString() ? std::optional(*v->asString()) : std::nullopt;
}

std::optional<WallTime> SettingsStore::dateValue(std::string_view key) const {
    const auto v = value(key);
    return v && v->asDate() ? std::optional(*v->asDate()) : std::nullopt;
}

std::optional<PlistData> SettingsStore::dataValue(std::string_view key) const {
    const auto v = value(key);
    return v && v->asData() ? std::optional(*v->asData()) : std::nullopt;
}

std::optional<PlistArray> SettingsStore::arrayValue(std::string_view key) const {
    const auto v = value(key);
    return v && v->asArray() ? std::optional(*v->asArray()) : std::nullopt;
}

std::optional<PlistDict> SettingsStore::dictValue(std::string_view key) const {
    const auto v = value(key);
    return v && v->asDict() ? std::optional(*v->asDict()) : std::nullopt;
}

StoreWrite SettingsStore::set(std::string_view key, PlistValue value) {
    std::lock_guard lock(mutex_);
    return update(key, std::move(value));
}

StoreWrite SettingsStore::remove(std::string_view key) {
    std::lock_guard lock(mutex_);
    return update(key, std::nullopt);
}

StoreWrite SettingsStore::setOptionalBool(std::string_view key, std::optional<bool> value) {
    std::lock_guard lock(mutex_);
    return update(key, value ? std::optional<PlistValue>(*value) : std::nullopt);
}

StoreWrite SettingsStore::update(std::string_view key, const std::optional<PlistValue>& value) {
    std::error_code ec;
    std::filesystem::create_directories(file_.parent_path(), ec);
    const FolderLock folderLock(file_.parent_path());
    if (folderLock.problem()) {
        log_.error("Failed writing setting {}: {}", key, *folderLock.problem());
        return StoreWrite::failed;
    }

    cachedStamp_.reset();
    current();  // re-read under the lock: another process may have written
    if (cachedProblem_) {
        std::string error;
        if (!setAsideLocked(&error) && cachedProblem_) {
            log_.error("Failed writing setting {}: the unreadable file could not be set aside: {}",
                       key, error);
            return StoreWrite::failed;
        }
    }
    PlistDict next = current();
    const auto it = next.find(key);
    if (!value) {
        if (it == next.end()) return StoreWrite::unchanged;
        next.erase(it);
    } else {
        if (it != next.end() && it->second == *value) return StoreWrite::unchanged;
        next.insert_or_assign(std::string(key), *value);
    }

    std::string error;
    if (!writeFileAtomically(file_, PlistValue(next).toXml(), &error)) {
        log_.error("Failed writing setting {}: {}", key, error);
        return StoreWrite::failed;
    }
    cachedStamp_.reset();  // the next read picks up the new file
    return StoreWrite::changed;
}

}  // namespace kestrow
