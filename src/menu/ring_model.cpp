#include "menu/ring_model.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>

namespace kestrow {

namespace {

constexpr double kSecondsPerHour = 3600.0;
constexpr double kFirstMergeHours = 3.0;
constexpr std::size_t kMaxRings = 60;
// A day and a half without a backup: a missed night is normal, a missed day and night is not.
constexpr double kGapHours = 36.0;

double hoursBetween(WallTime from, WallTime to) {
    return secondsBetween(from, to) / kSecondsPerHour;
}

}  // namespace

double RingModel::radius(const RingGeometry& geometry, double ageHours) {
    const double span = geometry.outerRadius - geometry.innerRadius;
    // A window of no length holds only the present: anything older is at the heart.
    if (!(geometry.windowHours > 0.0)) {
        return ageHours > 0.0 ? geometry.innerRadius : geometry.outerRadius;
    }
    const double clamped = std::min(std::max(ageHours, 0.0), geometry.windowHours);
    const double t = clamped / geometry.windowHours;
    return geometry.outerRadius - span * std::pow(t, geometry.power);
}

std::vector<RingModel::Cluster> RingModel::cluster(const std::vector<Event>& events,
                                                   double windowHours) {
    std::vector<Cluster> clusters;
    const double windowSeconds = windowHours * kSecondsPerHour;
    for (const Event& event : events) {
        if (!clusters.empty()) {
            Cluster& current = clusters.back();
            // Measured from the first event, so a steady stream of backups cannot chain into
            // one ring that spans days.
            if (current.failed == event.failed &&
                secondsBetween(current.first, event.date) < windowSeconds) {
                current.last = event.date;
                ++current.count;
                continue;
            }
        }
        clusters.push_back({event.date, event.date, 1, event.failed});
    }
    return clusters;
}

std::pair<std::vector<RingModel::Cluster>, int> RingModel::foldOldest(std::vector<Cluster> clusters,
                                                                      int keeping) {
    const std::size_t keep = static_cast<std::size_t>(std::max(keeping, 0));
    if (clusters.size() <= keep) return {std::move(clusters), 0};

    const std::size_t folded = clusters.size() - keep;
    Cluster merged{clusters.front().first, clusters[folded - 1].last, 0, true};
    for (std::size_t i = 0; i < folded; ++i) {
        merged.count += clusters[i].count;
        merged.failed = merged.failed && clusters[i].failed;
    }
    std::vector<Cluster> result;
    result.reserve(keep + 1);
    result.push_back(merged);
    result.insert(result.end(), clusters.begin() + static_cast<std::ptrdiff_t>(folded),
                  clusters.end());
    return {std::move(result), static_cast<int>(folded)};
}

RingModel RingModel::make(const std::vector<WallTime>& snapshots,
                          const std::vector<WallTime>& failures, WallTime now,
                          double thresholdHours, const RingGeometry& geometry) {
    RingModel model;
    model.geometry = geometry;
    model.thresholdHours = thresholdHours;
    model.thresholdRadius = radius(geometry, thresholdHours);
    model.barkRadius = geometry.outerRadius;
    model.madeAt = now;

    const WallTime windowStart = addSeconds(now, -geometry.windowHours * kSecondsPerHour);
    std::vector<WallTime> kept;
    std::copy_if(snapshots.begin(), snapshots.end(), std::back_inserter(kept),
                 [&](WallTime date) { return date >= windowStart; });
    std::sort(kept.begin(), kept.end());

    std::vector<Event> events;
    for (const WallTime date : kept) events.push_back({date, false});
    for (const WallTime date : failures) {
        // A failure logged at the very instant of a snapshot is the attempt that made it.
        if (date < windowStart || std::binary_search(kept.begin(), kept.end(), date)) continue;
        events.push_back({date, true});
        ++model.failedCount;
    }
    model.backupCount = static_cast<int>(kept.size());
    std::stable_sort(events.begin(), events.end(),
                     [](const Event& a, const Event& b) { return a.date < b.date; });

    double mergeHours = kFirstMergeHours;
    std::vector<Cluster> clusters = cluster(events, mergeHours);
    while (clusters.size() > kMaxRings && mergeHours < geometry.windowHours) {
        mergeHours *= 2.0;
        clusters = cluster(events, mergeHours);
    }
    if (clusters.size() > kMaxRings) {
        clusters = foldOldest(std::move(clusters), static_cast<int>(kMaxRings) - 1).first;
    }

    for (const Cluster& c : clusters) {
        const double age = std::max(0.0, hoursBetween(c.last, now));
        model.rings.push_back({c.last, c.first, c.count, c.failed, age, radius(geometry, age)});
    }
    for (std::size_t i = model.rings.size(); i-- > 0;) {
        if (!model.rings[i].failed) {
            model.newestIndex = i;
            break;
        }
    }

    const auto radiusAt = [&](WallTime date) { return radius(geometry, hoursBetween(date, now)); };
    for (std::size_t i = 1; i < kept.size(); ++i) {
        if (hoursBetween(kept[i - 1], kept[i]) > kGapHours) {
            model.gaps.push_back({kept[i - 1], kept[i], radiusAt(kept[i - 1]), radiusAt(kept[i])});
        }
    }
    if (!kept.empty() && hoursBetween(kept.back(), now) > kGapHours) {
        model.gaps.push_back(
            {kept.back(), std::nullopt, radiusAt(kept.back()), geometry.outerRadius});
    }
    return model;
}

std::optional<RingModel::Hit> RingModel::hit(double distance) const {
    const double tolerance = kHitTolerance * std::abs(geometry.outerRadius - geometry.innerRadius);
    std::optional<Hit> best;
    double bestDistance = std::numeric_limits<double>::infinity();
    for (std::size_t i = rings.size(); i-- > 0;) {
        const double off = std::abs(rings[i].radius - distance);
        if (off <= tolerance && off < bestDistance) {
            best = Hit{Hit::Kind::ring, i};
            bestDistance = off;
        }
    }
    if (best) return best;
    for (std::size_t i = gaps.size(); i-- > 0;) {
        const double low = std::min(gaps[i].innerRadius, gaps[i].outerRadius);
        const double high = std::max(gaps[i].innerRadius, gaps[i].outerRadius);
        if (distance >= low && distance <= high) return Hit{Hit::Kind::gap, i};
    }
    return std::nullopt;
}

}  // namespace kestrow
