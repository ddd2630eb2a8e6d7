#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "insights/size_snapshot.h"

namespace kestrow {

// One folder that grew fast between the last two snapshots.
struct HogAlert {
    std::string path;
    std::int64_t size = 0;
    std::int64_t growth = 0;  // for a new folder, its whole size
    bool isNew = false;
    int days = 0;  // between the two snapshots, rounded; 0 when there is only one
    // Set when alerted sub-folders explain part of the growth: the growth outside them, and
    // which they are (largest growth first).
    std::optional<std::int64_t> outside;
    std::vector<std::string> outsideOf;

    bool operator==(const HogAlert&) const = default;
};

// The hog watch's decisions, from two snapshots and the user's dismissals.
struct HogWatch {
    // Growth strictly above this counts (so 5 GB exactly does).
    static constexpr std::int64_t kGrowthBytes = 4'999'999'999;
    // A parent whose growth its alerted sub-folders explain to at least this share says nothing
    // of its own.
    static constexpr double kExplainedShare = 0.8;
    static constexpr int kFullWithinDays = 90;

    // The folders in `current` that grew by more than kGrowthBytes and by at least half their
    // earlier size, or appeared bigger than kGrowthBytes. A dismissed folder stays quiet until it
    // is 5 GB beyond the size it had when dismissed.
    //
    // Nesting: a grown parent and grown sub-folders are one story, told once. Candidates are
    // weighed deepest first; a parent is compared with its nearest candidate descendants (their
    // growth is not counted twice through the folders in between). When they explain 80% or more
    // of its growth the parent is dropped, else it stays with `outside` and `outsideOf` naming
    // them. A sub-folder is never dropped for its parent. Dismissed folders take part in this
    // weighing and only then go quiet, so dismissing a sub-folder does not make its parent speak
    // up for the same bytes (and a parent's `outsideOf` may name a dismissed folder, keeping
    // `outside` what it says).
    //
    // Ordered by growth, largest first; equal growth by path.
    static std::vector<HogAlert> alerts(const std::optional<SizeSnapshot>& previous,
                                        const SizeSnapshot& current,
                                        const std::map<std::string, std::int64_t>& dismissed);

    // Whole days until the volume is full at the pace of the last two snapshots; nothing when
    // that pace is unknown, not shrinking, or leaves 90 days or more.
    static std::optional<int> daysUntilFull(const std::optional<SizeSnapshot>& previous,
                                            const SizeSnapshot& current);

    struct Reading {
        std::vector<HogAlert> alerts;
        std::optional<int> daysUntilFull;
    };
    // What `snapshots` (oldest first) say; nothing without any. The alerts compare the newest
    // two of any kind; the days until full, the newest two nightly ones, since a manual scan
    // seconds after another measures no pace at all.
    static Reading latest(const std::vector<SizeSnapshot>& snapshots,
                          const std::map<std::string, std::int64_t>& dismissed);
};

}  // namespace kestrow
