#include "menu/menu_alert_text.h"

#include <type_traits>

namespace kestrow {
namespace {

MenuAlertText productText(const MenuAlertKind& kind) {
    using K = MenuAlertKind;
    return std::visit(
        [](const auto& k) -> MenuAlertText {
            using T = std::decay_t<decltype(k)>;
            if constexpr (std::is_same_v<T, K::SettingsAccess>) {
                return {"Kestrow can't read the Time Machine settings.",
                        "Without them it cannot tell whether this Mac is backed up.",
                        false,
                        {{MenuAlertAction::grantAccess, "Grant Permission", ""}}};
            } else if constexpr (std::is_same_v<T, K::LocalNetwork>) {
                return {"Kestrow can't reach your network shares.",
                        "Local Network access is off for Kestrow, so shares cannot be mounted.",
                        false,
                        {{MenuAlertAction::openSystemSettings, "Open System Settings", ""}}};
            } else if constexpr (std::is_same_v<T, K::BootDisk>) {
                return {"This Mac's disk reports " + k.condition, std::nullopt, false, {}};
            } else if constexpr (std::is_same_v<T, K::BackupDisk>) {
                return {"Backup disk reports " + k.condition, std::nullopt, false, {}};
            } else if constexpr (std::is_same_v<T, K::BackupOutOfSpace>) {
                return {"Last backup failed: not enough room on the backup disk. ",
                        "Time Machine could not free enough by deleting old backups.",
                        true,
                        {}};
            } else if constexpr (std::is_same_v<T, K::Unscheduled>) {
                return {"No backups scheduled.",
                        "macOS automatic backups and Nightly backup are both off, so nothing "
                        "will back this Mac up.",
                        false,
                        {{MenuAlertAction::turnOnNightlyBackup, "Turn on Nightly backup", ""}}};
            } else if constexpr (std::is_same_v<T, K::Hog>) {
                return {
                    "A folder is growing fast",
                    "At this rate your disk is full in " + MenuAlertText::projectedTime(k.value),
                    false,
                    {{MenuAlertAction::reveal, "Reveal in Finder", ""},
                     {MenuAlertAction::quiet, "This is expected",
                      "Quiet until it grows another 5 GB"}}};
            } else if constexpr (std::is_same_v<T, K::Space>) {
                return {"This Mac is low on space. ",
                        "Free up space below, or backups may stop.",
                        true,
                        {}};
            } else {
                static_assert(std::is_same_v<T, K::Retention>);
                return {
                    "The backup disk is full, so Time Machine is deleting history faster "
                    "than you may want.",
                    std::nullopt,
                    false,
                    {}};
            }
        },
        kind.value);
}

}  // namespace

MenuAlertText MenuAlertText::of(const MenuAlertKind& kind, const Wording& wording) {
    MenuAlertText text = productText(kind);
    text.headline = wording(text.headline);
    if (text.explanation) text.explanation = wording(*text.explanation);
    for (Button& button : text.buttons) {
        button.title = wording(button.title);
        button.help = wording(button.help);
    }
    return text;
}

std::string MenuAlertText::projectedTime(std::int64_t days) {
    if (days < 1) return "less than a day";
    return days == 1 ? "1 day" : std::to_string(days) + " days";
}

}  // namespace kestrow
