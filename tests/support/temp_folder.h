#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>

#include "support/environment.h"

namespace kestrow::testing {

// A fresh folder under the system's temp folder, removed with everything in it at the end.
class TempFolder {
public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }
    void write(const std::string& name, const std::string& content) const;

    // An environment whose HOME is this folder and whose XDG folders live inside it.
    EnvironmentLookup homeEnvironment(std::map<std::string, std::string> extra = {}) const;

private:
    std::filesystem::path path_;
};

}  // namespace kestrow::testing
