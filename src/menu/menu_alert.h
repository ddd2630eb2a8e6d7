#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace kestrow {

// Something the user should act on, shown as a card at the top of the menu. Some kinds carry the
// words or number their owner raised them with.
struct MenuAlertKind {
    struct BootDisk {
        std::string condition;  // as the disk words it
        bool operator==(const BootDisk&) const = default;
    };
    struct BackupDisk {
        std::string condition;
        bool operator==(const BackupDisk&) const = default;
    };
    struct Hog {
        std::int64_t value = 0;  // supplied by the hog watch with its alert
        bool operator==(const Hog&) const = default;
    };
    struct SettingsAccess {
        bool operator==(const SettingsAccess&) const = default;
    };
    struct LocalNetwork {
        bool operator==(const LocalNetwork&) const = default;
    };
    struct Unscheduled {
        bool operator==(const Unscheduled&) const = default;
    };
    struct BackupOutOfSpace {
        bool operator==(const BackupOutOfSpace&) const = default;
    };
    struct Space {
        bool operator==(const Space&) const = default;
    };
    struct Retention {
        bool operator==(const Retention&) const = default;
    };

    std::variant<BootDisk, BackupDisk, Hog, SettingsAccess, LocalNetwork, Unscheduled,
                 BackupOutOfSpace, Space, Retention>
        value;
    bool operator==(const MenuAlertKind&) const = default;

    // Urgency: the lower, the higher up the menu.
    int rank() const;
    // "unscheduled", "bootDisk", … as the command line names them.
    std::string name() const;
};

// The fixed order of the cards and the two-card collapse.
struct MenuAlertOrder {
    struct Split {
        std::vector<MenuAlertKind> shown;
        std::vector<MenuAlertKind> hidden;
        bool operator==(const Split&) const = default;
    };

    // How many cards show before the user asks for all.
    static constexpr std::size_t kCollapsedCount = 2;

    // By rank; kinds of equal rank keep the order they were raised in.
    static std::vector<MenuAlertKind> ordered(std::vector<MenuAlertKind> kinds);
    // The same order as positions in `kinds`, for lists that carry more than the kind.
    static std::vector<std::size_t> positions(const std::vector<MenuAlertKind>& kinds);
    // The first two unless all are asked for.
    static Split split(std::vector<MenuAlertKind> kinds, bool showAll);
    // Moves what `split` hides from the end of `shown`, already in order, to `hidden`.
    template <typename T>
    static void collapse(std::vector<T>& shown, std::vector<T>& hidden, bool showAll) {
        if (showAll || shown.size() <= kCollapsedCount) return;
        const auto cut = shown.begin() + static_cast<std::ptrdiff_t>(kCollapsedCount);
        hidden.assign(cut, shown.end());
        shown.erase(cut, shown.end());
    }
    // The control under the cards: nothing with nothing to hide or show again.
    static std::optional<std::string> toggleLabel(const Split& split, bool showAll);
    static std::optional<std::string> toggleLabel(std::size_t shown, std::size_t hidden,
                                                  bool showAll);
};

}  // namespace kestrow
