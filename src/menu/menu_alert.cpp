#include "menu/menu_alert.h"

#include <algorithm>
#include <numeric>
#include <type_traits>

namespace kestrow {
int MenuAlertKind::rank() const {
    // Deliberately not the order of the cases: a backup that failed for lack of room outranks
    // the missing schedule, and a fast-growing folder sits between the schedule and low space.
    return std::visit(
        [](const auto& kind) {
            using K = std::decay_t<decltype(kind)>;
            if constexpr (std::is_same_v<K, SettingsAccess>) return 1;
            if constexpr (std::is_same_v<K, LocalNetwork>) return 2;
            if constexpr (std::is_same_v<K, BootDisk>) return 3;
            if constexpr (std::is_same_v<K, BackupDisk>) return 4;
            if constexpr (std::is_same_v<K, BackupOutOfSpace>) return 5;
            if constexpr (std::is_same_v<K, Unscheduled>) return 6;
            if constexpr (std::is_same_v<K, Hog>) return 7;
            if constexpr (std::is_same_v<K, Space>) return 8;
            if constexpr (std::is_same_v<K, Retention>) return 9;
        },
        value);
}

std::string MenuAlertKind::name() const {
    return std::visit(
        [](const auto& kind) -> std::string {
            using K = std::decay_t<decltype(kind)>;
            if constexpr (std::is_same_v<K, SettingsAccess>) return "settingsAccess";
            if constexpr (std::is_same_v<K, LocalNetwork>) return "localNetwork";
            if constexpr (std::is_same_v<K, BootDisk>) return "bootDisk";
            if constexpr (std::is_same_v<K, BackupDisk>) return "backupDisk";
            if constexpr (std::is_same_v<K, BackupOutOfSpace>) return "backupOutOfSpace";
            if constexpr (std::is_same_v<K, Unscheduled>) return "unscheduled";
            if constexpr (std::is_same_v<K, Hog>) return "hog";
            if constexpr (std::is_same_v<K, Space>) return "space";
            if constexpr (std::is_same_v<K, Retention>) return "retention";
        },
        value);
}

std::vector<std::size_t> MenuAlertOrder::positions(const std::vector<MenuAlertKind>& kinds) {
    std::vector<std::size_t> order(kinds.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::stable_sort(order.begin(), order.end(), [&kinds](std::size_t a, std::size_t b) {
        return kinds[a].rank() < kinds[b].rank();
    });
    return order;
}

std::vector<MenuAlertKind> MenuAlertOrder::ordered(std::vector<MenuAlertKind> kinds) {
    std::vector<MenuAlertKind> result;
    result.reserve(kinds.size());
    for (std::size_t position : positions(kinds)) result.push_back(std::move(kinds[position]));
    return result;
}

MenuAlertOrder::Split MenuAlertOrder::split(std::vector<MenuAlertKind> kinds, bool showAll) {
    Split result;
    result.shown = ordered(std::move(kinds));
    collapse(result.shown, result.hidden, showAll);
    return result;
}

std::optional<std::string> MenuAlertOrder::toggleLabel(const Split& split, bool showAll) {
    return toggleLabel(split.shown.size(), split.hidden.size(), showAll);
}

std::optional<std::string> MenuAlertOrder::toggleLabel(std::size_t shown, std::size_t hidden,
                                                       bool showAll) {
    if (hidden > 0) {
        return hidden == 1 ? std::string("Show 1 more alert")
                           : "Show " + std::to_string(hidden) + " more alerts";
    }
    if (showAll && shown > kCollapsedCount) return std::string("Show fewer alerts");
    return std::nullopt;
}

}  // namespace kestrow
