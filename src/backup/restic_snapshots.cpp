#include "backup/restic_snapshots.h"

#include <algorithm>

#include "backup/restic_json.h"

namespace kestrow {
namespace {

using nlohmann::json;
namespace rj = restic_json;

std::vector<std::string> texts(const json& snapshot, const char* key) {
    std::vector<std::string> found;
    const auto list = snapshot.find(key);
    if (list == snapshot.end() || !list->is_array()) return found;
    for (const auto& item : *list) {
        if (item.is_string()) found.push_back(item.get<std::string>());
    }
    return found;
}

}  // namespace

std::optional<std::vector<ResticSnapshot>> ResticSnapshots::parse(std::string_view text) {
    const json document = rj::parse(text, kLargestListing);
    if (!document.is_array()) return std::nullopt;
    std::vector<ResticSnapshot> snapshots;
    for (const auto& entry : document) {
        if (!entry.is_object()) continue;
        ResticSnapshot snapshot;
        const auto id = rj::text(entry, "id");
        if (!id || id->empty()) continue;
        // The summary (newer restic) says when the backup really ended; "time" is its start.
        std::optional<WallTime> end;
        if (const auto summary = entry.find("summary"); summary != entry.end()) {
            end = rj::time(*summary, "backup_end");
        }
        if (!end) end = rj::time(entry, "time");
        if (!end) continue;
        snapshot.id = *id;
        snapshot.shortId = rj::text(entry, "short_id").value_or(id->substr(0, 8));
        snapshot.end = *end;
        snapshot.hostname = rj::text(entry, "hostname").value_or("");
        snapshot.paths = texts(entry, "paths");
        snapshot.tags = texts(entry, "tags");
        snapshots.push_back(std::move(snapshot));
    }
    std::stable_sort(snapshots.begin(), snapshots.end(),
                     [](const auto& a, const auto& b) { return a.end < b.end; });
    return snapshots;
}

}  // namespace kestrow
