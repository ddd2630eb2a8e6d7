#include "insights/hog_watch.h"

#include <algorithm>
#include <cmath>

namespace kestrow {
namespace {

constexpr double kDaySeconds = 86'400.0;

bool isInside(const std::string& path, const std::string& folder) {
    if (path.size() <= folder.size() || !path.starts_with(folder)) return false;
    return folder.ends_with('/') || path[folder.size()] == '/';
}

bool largerGrowthFirst(const HogAlert& a, const HogAlert& b) {
    if (a.growth != b.growth) return a.growth > b.growth;
    return a.path < b.path;
}

std::vector<HogAlert> candidates(const std::optional<SizeSnapshot>& previous,
                                 const SizeSnapshot& current) {
    int days = 0;
    if (previous)
        days = static_cast<int>(
            std::lround(secondsBetween(previous->date, current.date) / kDaySeconds));
    std::vector<HogAlert> found;
    for (const auto& [path, size] : current.sizes) {
        const std::int64_t* before = nullptr;
        if (previous) {
            const auto entry = previous->sizes.find(path);
            if (entry != previous->sizes.end()) before = &entry->second;
        }
        if (before != nullptr) {
            const std::int64_t prev = *before;
            // Sizes read from disk are never negative, so neither difference can overflow.
            const std::int64_t growth = size - prev;
            if (growth > HogWatch::kGrowthBytes && growth >= prev - growth) {
                found.push_back({path, size, growth, false, days, std::nullopt, {}});
            }
        } else if (size > HogWatch::kGrowthBytes) {
            found.push_back({path, size, size, true, days, std::nullopt, {}});
        }
    }
    return found;
}

// Drops the parents their alerted sub-folders explain, and tells the others what they do not.
void fold(std::vector<HogAlert>& found) {
    // A folder's path is longer than any of its parents', so longest first is deepest first.
    std::stable_sort(found.begin(), found.end(), [](const HogAlert& a, const HogAlert& b) {
        return a.path.size() > b.path.size();
    });
    std::vector<const HogAlert*> kept;  // deeper ones first, as decided
    std::vector<bool> dropped(found.size(), false);
    for (std::size_t i = 0; i < found.size(); ++i) {
        HogAlert& parent = found[i];
        std::vector<const HogAlert*> inside;
        for (const HogAlert* alert : kept) {
            if (isInside(alert->path, parent.path)) inside.push_back(alert);
        }
        // Only the outermost of them: a folder's growth already holds its sub-folders'.
        std::vector<const HogAlert*> nearest;
        for (const HogAlert* alert : inside) {
            const bool covered = std::any_of(inside.begin(), inside.end(), [&](const HogAlert* o) {
                return isInside(alert->path, o->path);
            });
            if (!covered) nearest.push_back(alert);
        }
        if (nearest.empty()) {
            kept.push_back(&parent);
            continue;
        }
        double explained = 0.0;
        std::int64_t explainedBytes = 0;
        for (const HogAlert* alert : nearest) {
            explained += static_cast<double>(alert->growth);
            explainedBytes += alert->growth;
        }
        if (explained >= HogWatch::kExplainedShare * static_cast<double>(parent.growth)) {
            dropped[i] = true;
            continue;
        }
        std::sort(nearest.begin(), nearest.end(),
                  [](const HogAlert* a, const HogAlert* b) { return largerGrowthFirst(*a, *b); });
        parent.outside = parent.growth - explainedBytes;
        for (const HogAlert* alert : nearest) parent.outsideOf.push_back(alert->path);
        kept.push_back(&parent);
    }
    std::vector<HogAlert> survivors;
    for (std::size_t i = 0; i < found.size(); ++i) {
        if (!dropped[i]) survivors.push_back(std::move(found[i]));
    }
    found = std::move(survivors);
}

}  // namespace

std::vector<HogAlert> HogWatch::alerts(const std::optional<SizeSnapshot>& previous,
                                       const SizeSnapshot& current,
                                       const std::map<std::string, std::int64_t>& dismissed) {
    std::vector<HogAlert> found = candidates(previous, current);
    fold(found);
    std::erase_if(found, [&](const HogAlert& alert) {
        const auto entry = dismissed.find(alert.path);
        // size − dismissed ≤ limit, written so that no stored value can overflow it.
        return entry != dismissed.end() && entry->second >= alert.size - kGrowthBytes;
    });
    std::sort(found.begin(), found.end(), largerGrowthFirst);
    return found;
}

std::optional<int> HogWatch::daysUntilFull(const std::optional<SizeSnapshot>& previous,
                                           const SizeSnapshot& current) {
    if (!previous || !previous->freeBytes || !current.freeBytes || *current.freeBytes < 0)
        return std::nullopt;
    const double seconds = secondsBetween(previous->date, current.date);
    if (!(seconds > 0.0)) return std::nullopt;
    const double free = static_cast<double>(*current.freeBytes);
    const double drop = static_cast<double>(*previous->freeBytes) - free;
    if (drop < 1.0) return std::nullopt;
    const double days = std::floor(free / drop * seconds / kDaySeconds);
    if (days >= kFullWithinDays) return std::nullopt;
    return static_cast<int>(days);
}

HogWatch::Reading HogWatch::latest(const std::vector<SizeSnapshot>& snapshots,
                                   const std::map<std::string, std::int64_t>& dismissed) {
    if (snapshots.empty()) return {};
    const SizeSnapshot& current = snapshots.back();
    std::optional<SizeSnapshot> previous;
    if (snapshots.size() >= 2) previous = snapshots[snapshots.size() - 2];
    std::vector<const SizeSnapshot*> nightly;
    for (auto it = snapshots.rbegin(); it != snapshots.rend() && nightly.size() < 2; ++it) {
        if (it->kind == SizeSnapshot::Kind::nightly) nightly.push_back(&*it);
    }
    std::optional<int> full;
    if (nightly.size() == 2) full = daysUntilFull(*nightly[1], *nightly[0]);
    return {alerts(previous, current, dismissed), full};
}

}  // namespace kestrow
