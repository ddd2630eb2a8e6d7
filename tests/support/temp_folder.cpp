#include "support/temp_folder.h"

#include <stdlib.h>

#include <fstream>
#include <stdexcept>

namespace kestrow::testing {

TempFolder::TempFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "kestrow-test.XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    path_ = pattern;
}

TempFolder::~TempFolder() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
}

void TempFolder::write(const std::string& name, const std::string& content) const {
    std::filesystem::create_directories((path_ / name).parent_path());
    std::ofstream(path_ / name, std::ios::binary) << content;
}

EnvironmentLookup TempFolder::homeEnvironment(std::map<std::string, std::string> extra) const {
    extra.emplace("HOME", path_.string());
    extra.emplace("XDG_CONFIG_HOME", (path_ / ".config").string());
    extra.emplace("XDG_DATA_HOME", (path_ / ".local/share").string());
    extra.emplace("XDG_CACHE_HOME", (path_ / ".cache").string());
    return [extra](std::string_view name) -> std::optional<std::string> {
        const auto it = extra.find(std::string(name));
        if (it == extra.end()) return std::nullopt;
        return it->second;
    };
}

}  // namespace kestrow::testing
