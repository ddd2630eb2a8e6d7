#include "insights/duplicate_roots.h"

#include <fstream>
#include <map>
#include <optional>

namespace kestrow {
namespace {

// One value of user-dirs.dirs: XDG_NAME_DIR="$HOME/Folder" or XDG_NAME_DIR="/absolute". Anything
// else (a relative path, a broken line) reads as absent.
std::optional<std::filesystem::path> userDirValue(std::string_view raw,
                                                  const std::filesystem::path& home) {
    if (raw.size() < 2 || raw.front() != '"') return std::nullopt;
    const auto close = raw.find_last_of('"');
    if (close == 0) return std::nullopt;
    std::string value;
    for (std::size_t i = 1; i < close; ++i) {
        if (raw[i] == '\\' && i + 1 < close) ++i;
        value.push_back(raw[i]);
    }
    if (value.starts_with("$HOME")) {
        const std::string rest = value.substr(5);
        if (!rest.empty() && rest.front() != '/') return std::nullopt;
        return (home / std::filesystem::path(rest).relative_path()).lexically_normal();
    }
    if (!value.starts_with('/')) return std::nullopt;
    return std::filesystem::path(value).lexically_normal();
}

std::map<std::string, std::filesystem::path> readUserDirs(const UserLocations& locations) {
    std::map<std::string, std::filesystem::path> dirs;
    std::ifstream in(locations.configHome / "user-dirs.dirs");
    std::string line;
    while (std::getline(in, line)) {
        const auto first = line.find_first_not_of(" \t");
        if (first == std::string::npos || line[first] == '#') continue;
        const auto equals = line.find('=', first);
        if (equals == std::string::npos) continue;
        const std::string name = line.substr(first, equals - first);
        std::string_view raw(line);
        raw.remove_prefix(equals + 1);
        while (!raw.empty() && (raw.back() == ' ' || raw.back() == '\t' || raw.back() == '\r'))
            raw.remove_suffix(1);
        if (auto value = userDirValue(raw, locations.home)) dirs[name] = *value;
    }
    return dirs;
}

}  // namespace

DuplicateRoots DuplicateRoots::resolve(const UserLocations& locations,
                                       const std::vector<std::string>& extraFolders) {
    const auto dirs = readUserDirs(locations);
    const auto home = locations.home.lexically_normal();
    const auto pick = [&](const std::string& key, const char* fallback) -> std::filesystem::path {
        const auto found = dirs.find(key);
        if (found == dirs.end()) return home / fallback;
        if (found->second == home || found->second == home / "") return {};
        return found->second;
    };
    DuplicateRoots roots;
    roots.desktop = pick("XDG_DESKTOP_DIR", "Desktop");
    roots.documents = pick("XDG_DOCUMENTS_DIR", "Documents");
    roots.downloads = pick("XDG_DOWNLOAD_DIR", "Downloads");
    for (const auto& folder : extraFolders)
        if (!folder.empty()) roots.extra.emplace_back(folder);
    return roots;
}

std::vector<std::filesystem::path> DuplicateRoots::all() const {
    std::vector<std::filesystem::path> roots;
    for (const auto& folder : {desktop, documents, downloads})
        if (!folder.empty()) roots.push_back(folder);
    roots.insert(roots.end(), extra.begin(), extra.end());
    return roots;
}

std::string DuplicateRoots::caption() const {
    std::string text = "Desktop, Documents, Downloads";
    for (const auto& folder : extra) text += ", " + folder.string();
    return text + ". Files of 1 MB or more; app and photo libraries are skipped.";
}

KeepPreference DuplicateRoots::keepPreference() const {
    // As the kernel resolves them, like the paths of the copies found under them.
    const auto resolved = [](const std::filesystem::path& folder) -> std::filesystem::path {
        std::error_code error;
        if (folder.empty()) return folder;
        auto path = std::filesystem::weakly_canonical(folder, error);
        return error ? folder : path;
    };
    KeepPreference preference;
    if (!documents.empty()) preference.preferred.push_back(resolved(documents));
    for (const auto& folder : extra) preference.preferred.push_back(resolved(folder));
    preference.downloads = resolved(downloads);
    return preference;
}

}  // namespace kestrow
