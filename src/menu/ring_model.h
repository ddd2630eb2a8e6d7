#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "support/clock.h"

namespace kestrow {

// The shape of the rings picture: where a ring made now lies (the edge), where the oldest ring
// the window holds lies, and how age bends between them.
struct RingGeometry {
    double innerRadius = 0.0;
    double outerRadius = 0.0;
    double power = 1.0;
    double windowHours = 0.0;
    bool operator==(const RingGeometry&) const = default;
};

// The backup history as the rings of a tree: one ring per backup, close backups merged, the
// newest at the edge; failed attempts as rings of their own; long stretches without a backup as
// shaded gaps; the protection threshold as a band at the edge. Pure: drawing only reads it.
struct RingModel {
    struct Ring {
        WallTime date;       // the newest event merged into the ring
        WallTime firstDate;  // the oldest
        int count = 0;
        bool failed = false;
        double ageHours = 0.0;
        double radius = 0.0;
        bool operator==(const Ring&) const = default;
    };
    struct Gap {
        WallTime from;
        std::optional<WallTime> to;  // absent while the gap is still open now
        double innerRadius = 0.0;
        double outerRadius = 0.0;
        bool operator==(const Gap&) const = default;
    };
    struct Event {
        WallTime date;
        bool failed = false;
    };
    struct Cluster {
        WallTime first;
        WallTime last;
        int count = 0;
        bool failed = false;
        bool operator==(const Cluster&) const = default;
    };
    // What lies under the pointer.
    struct Hit {
        enum class Kind { ring, gap };
        Kind kind = Kind::ring;
        std::size_t index = 0;
        bool operator==(const Hit&) const = default;
    };

    RingGeometry geometry;
    std::vector<Ring> rings;  // oldest first
    std::vector<Gap> gaps;    // oldest first
    std::optional<std::size_t> newestIndex;
    int backupCount = 0;
    int failedCount = 0;
    double thresholdHours = 0.0;
    double thresholdRadius = 0.0;
    double barkRadius = 0.0;
    WallTime madeAt;  // the `now` the rings were made for; an open gap runs up to it

    bool operator==(const RingModel&) const = default;

    static RingModel make(const std::vector<WallTime>& snapshots,
                          const std::vector<WallTime>& failures, WallTime now,
                          double thresholdHours, const RingGeometry& geometry);
    // Events oldest first; an event joins the current cluster when it is of the same kind and
    // less than `windowHours` after the cluster's first event.
    static std::vector<Cluster> cluster(const std::vector<Event>& events, double windowHours);
    // Folds all but the newest `keeping` clusters into one; also returns how many were folded.
    static std::pair<std::vector<Cluster>, int> foldOldest(std::vector<Cluster> clusters,
                                                           int keeping);
    static double radius(const RingGeometry& geometry, double ageHours);
    // The ring or gap at `distance` from the centre, if any. Rings win over gaps, since failed
    // attempts lie inside the gap they did not close: the ring nearest to `distance` counts when
    // it lies within kHitTolerance of the ring span (outer minus inner radius), the newer one on
    // a tie; else the gap whose radial span holds `distance`, edges included.
    std::optional<Hit> hit(double distance) const;
    // About 2.5 px at menu size: wide enough to land on a one-pixel line, narrow enough that
    // neighbouring rings stay apart.
    static constexpr double kHitTolerance = 0.03;
};

// The inputs the rings were last made from. The picture is remade only when this changes, so it
// ages at most once a minute.
struct RingKey {
    std::vector<WallTime> snapshots;
    std::vector<WallTime> failures;
    std::int64_t minute = 0;
    double thresholdHours = 0.0;
    bool operator==(const RingKey&) const = default;
};

}  // namespace kestrow
