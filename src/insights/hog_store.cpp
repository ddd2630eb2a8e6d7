#include "insights/hog_store.h"

#include <algorithm>
#include <cctype>

#include "support/atomic_file.h"
#include "support/iso_date.h"

namespace kestrow {

namespace fs = std::filesystem;

fs::path HogStore::folderIn(const UserLocations& locations) {
    return locations.dataHome / "Orvel" / "sizes";
}

std::string HogStore::snapshotName(WallTime date) {
    std::string name = formatIsoDate(date);
    std::erase(name, ':');
    return name + ".json";
}

bool HogStore::isSnapshotName(std::string_view name) {
    // ^\d{4}-\d{2}-\d{2}T\d{6}Z\.json$
    static constexpr std::string_view pattern = "dddd-dd-ddTddddddZ.json";
    if (name.size() != pattern.size()) return false;
    for (std::size_t i = 0; i < name.size(); ++i) {
        const char c = name[i];
        if (pattern[i] == 'd' ? !std::isdigit(static_cast<unsigned char>(c)) : c != pattern[i])
            return false;
    }
    return true;
}

std::vector<std::string> HogStore::snapshotsToPrune(std::vector<std::string> names,
                                                    std::size_t keep) {
    std::erase_if(names, [](const std::string& name) { return !isSnapshotName(name); });
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    if (names.size() <= keep) return {};
    names.resize(names.size() - keep);
    return names;
}

std::vector<std::string> HogStore::snapshotNames() const {
    std::vector<std::string> names;
    std::error_code error;
    fs::directory_iterator entries(folder_, error);
    if (error) return names;
    for (const auto& entry : entries) {
        std::string name = entry.path().filename().string();
        if (isSnapshotName(name) && entry.is_regular_file(error)) names.push_back(std::move(name));
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<SizeSnapshot> HogStore::load() const {
    std::vector<SizeSnapshot> snapshots;
    for (const auto& name : snapshotNames()) {
        const auto text = readFile(folder_ / name);
        if (!text) continue;
        if (auto snapshot = SizeSnapshot::fromJson(*text))
            snapshots.push_back(std::move(*snapshot));
    }
    return snapshots;
}

bool HogStore::save(const SizeSnapshot& snapshot, std::string* error) const {
    std::error_code created;
    fs::create_directories(folder_, created);
    if (!writeFileAtomically(folder_ / snapshotName(snapshot.date), snapshot.toJson(), error))
        return false;
    const std::vector<std::string> names = snapshotNames();
    // The two newest nightly snapshots set the pace of the days-until-full estimate, so a run
    // of manual scans never prunes them away.
    std::vector<std::string> nightly;
    for (auto name = names.rbegin(); name != names.rend() && nightly.size() < 2; ++name) {
        const auto text = readFile(folder_ / *name);
        const auto stored = text ? SizeSnapshot::fromJson(*text) : std::nullopt;
        if (stored && stored->kind == SizeSnapshot::Kind::nightly) nightly.push_back(*name);
    }
    for (const auto& name : snapshotsToPrune(names, kKeep)) {
        if (std::find(nightly.begin(), nightly.end(), name) != nightly.end()) continue;
        std::error_code ignored;
        fs::remove(folder_ / name, ignored);
    }
    return true;
}

}  // namespace kestrow
