#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "support/logger.h"
#include "support/plist_value.h"

namespace kestrow {

enum class StoreWrite { changed, unchanged, failed };

// One key-value store kept as an XML plist file. Reads see the file as it is now (another
// process, such as `kestrow settings set`, may have changed it); a missing, empty, truncated,
// foreign or hostile file (nested too deep, a FIFO or device in its place, far too large) reads
// as an empty store. Before a write replaces such a file it is set aside beside itself as
// "<name>.unreadable-<its modification time>", never deleted, so a hand-edit gone wrong can be
// recovered. Typed reads give nothing for a value of another type. Safe to use from several
// threads and processes.
class SettingsStore {
public:
    // The agent sets an unreadable file aside as it opens its stores, so that it starts from
    // defaults and says so once; a command that only reads leaves the file where it is.
    enum class OnUnreadable { readAsEmpty, setAside };

    SettingsStore(std::filesystem::path file, Logger log,
                  OnUnreadable onUnreadable = OnUnreadable::readAsEmpty);

    // Sets the file aside when it is there but cannot be read as settings; where it went.
    std::optional<std::filesystem::path> setAsideIfUnreadable();

    const std::filesystem::path& file() const { return file_; }

    std::optional<PlistValue> value(std::string_view key) const;
    std::optional<bool> boolValue(std::string_view key) const;
    // An integer, or a real without a fraction.
    std::optional<std::int64_t> integerValue(std::string_view key) const;
    // A real or an integer; never NaN or infinite.
    std::optional<double> realValue(std::string_view key) const;
    std::optional<std::string> stringValue(std::string_view key) const;
    std::optional<WallTime> dateValue(std::string_view key) const;
    std::optional<PlistData> dataValue(std::string_view key) const;
    std::optional<PlistArray> arrayValue(std::string_view key) const;
    std::optional<PlistDict> dictValue(std::string_view key) const;
    PlistDict contents() const;

    // A write that would store what is already there is skipped.
    StoreWrite set(std::string_view key, PlistValue value);
    StoreWrite remove(std::string_view key);
    // Optional booleans: "not known" is the absent key, so writing it removes the key.
    StoreWrite setOptionalBool(std::string_view key, std::optional<bool> value);

private:
    struct FileStamp {
        dev_t device = 0;
        ino_t inode = 0;
        std::int64_t modifiedNanoseconds = 0;
        off_t size = -1;
        bool operator==(const FileStamp&) const = default;
    };

    // All need mutex_ held; the last two also the folder lock.
    const PlistDict& current() const;
    StoreWrite update(std::string_view key, const std::optional<PlistValue>& value);
    std::optional<std::filesystem::path> setAsideLocked(std::string* error);

    std::filesystem::path file_;
    Logger log_;
    mutable std::mutex mutex_;
    mutable std::optional<FileStamp> cachedStamp_;
    mutable PlistDict cached_;
    // Why the file as last read could not be used; nothing when it was fine, empty or missing.
    mutable std::optional<std::string> cachedProblem_;
    mutable OnceLog unreadableNote_;
};

}  // namespace kestrow
