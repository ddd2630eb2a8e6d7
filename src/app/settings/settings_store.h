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
// process, such as `kestrow settings set`, may have changed it); a missing, empty, truncated or
// foreign file reads as an empty store, and the next write replaces it atomically. Typed reads
// give nothing for a value of another type. Safe to use from several threads and processes.
class SettingsStore {
public:
    SettingsStore(std::filesystem::path file, Logger log);

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

    // Both need mutex_ held.
    const PlistDict& current() const;
    StoreWrite update(std::string_view key, const std::optional<PlistValue>& value);

    std::filesystem::path file_;
    Logger log_;
    mutable std::mutex mutex_;
    mutable std::optional<FileStamp> cachedStamp_;
    mutable PlistDict cached_;
    mutable OnceLog unreadableNote_;
};

}  // namespace kestrow
