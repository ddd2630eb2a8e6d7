#include "app/settings/settings_store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>

#include "support/atomic_file.h"

namespace kestrow {
namespace {

// Serialises read-modify-write cycles with other Kestrow processes (the agent and the command
// line) by locking the settings folder itself, so no lock file is left lying around.
class FolderLock {
public:
    explicit FolderLock(const std::filesystem::path& folder)
        : fd_(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        if (fd_ >= 0) {
            while (::flock(fd_, LOCK_EX) != 0 && errno == EINTR) {
            }
        }
    }
    ~FolderLock() {
        if (fd_ >= 0) ::close(fd_);  // closing releases the lock
    }
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;

private:
    int fd_;
};

}  // namespace

SettingsStore::SettingsStore(std::filesystem::path file, Logger log)
    : file_(std::move(file)), log_(log) {}

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
    cachedStamp_ = stamp;
    if (stamp.size < 0) return cached_;  // no file yet: nothing stored
    const auto bytes = readFile(file_);
    const auto parsed = bytes ? PlistValue::parse(*bytes) : std::nullopt;
    if (parsed && parsed->asDict() != nullptr) {
        cached_ = *parsed->asDict();
        unreadableNote_.reset();
    } else {
        log_.once(unreadableNote_, LogLevel::error,
                  "Settings file " + file_.string() +
                      " is unreadable; reading it as empty until the next write");
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

    PlistDict next = current();  // re-read under the lock: another process may have written
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
