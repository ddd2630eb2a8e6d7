#pragma once

#include <optional>
#include <string>
#include <vector>

#include "menu/menu_alert.h"
#include "support/wording.h"

namespace kestrow {

// What pressing a card's button does; the menu carries it out.
enum class MenuAlertAction { grantAccess, openSystemSettings, turnOnNightlyBackup, reveal, quiet };

// The words of one alert card.
struct MenuAlertText {
    struct Button {
        MenuAlertAction action;
        std::string title;
        std::string help;  // a tooltip; empty for none
        bool operator==(const Button&) const = default;
    };

    std::string headline;
    std::optional<std::string> explanation;
    // The explanation continues the headline's paragraph instead of standing under it.
    bool runsOn = false;
    std::vector<Button> buttons;

    bool operator==(const MenuAlertText&) const = default;

    // The card's words as the product has them, said in `wording`.
    static MenuAlertText of(const MenuAlertKind& kind, const Wording& wording);

    // "less than a day", "1 day", "12 days": how far off a full disk is.
    static std::string projectedTime(std::int64_t days);
};

}  // namespace kestrow
