#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "shares/smb_share.h"

namespace kestrow {

// The shares file, "MountWarden/shares.json" in the data folder: one JSON array of records.
// Reading is all or nothing: one record that does not decode leaves the list empty and the file
// as it is, until the next save overwrites it.
class ShareStore {
public:
    explicit ShareStore(std::filesystem::path dataFolder);

    const std::filesystem::path& file() const { return file_; }
    std::vector<SMBShare> load() const;
    // Rewrites the whole list; false when it could not be written.
    bool save(const std::vector<SMBShare>& shares) const;

    static std::vector<SMBShare> decode(const std::string& text);
    static std::string encode(const std::vector<SMBShare>& shares);

private:
    std::filesystem::path file_;
};

}  // namespace kestrow
