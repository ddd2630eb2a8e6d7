#include "menu/menu_bar_state.h"

#include "app/settings/standard_settings.h"

namespace kestrow {

MenuBarState::MenuBarState(SettingsStore& standardStore, Executor& mainExecutor)
    : standardStore_(standardStore), mainExecutor_(mainExecutor) {}

void MenuBarState::setProtected(bool isProtected) {
    // The same verdict published again is no change, so it keeps an icon the user brought back.
    if (isProtected != protected_) held_ = false;
    protected_ = isProtected;
    reevaluateIconVisibility();
}

void MenuBarState::reevaluateIconVisibility() {
    if (pendingHide_) mainExecutor_.cancel(*pendingHide_);
    pendingHide_.reset();
    const StandardSettings settings(standardStore_);
    if (held_ || !(protected_ && settings.hideIconWhenProtected())) {
        iconVisible_.set(true);
        return;
    }
    pendingHide_ = mainExecutor_.postAfter(settings.hideIconDelaySeconds(), [this] {
        pendingHide_.reset();
        iconVisible_.set(false);
    });
}

void MenuBarState::holdIconVisible() {
    held_ = true;
    reevaluateIconVisibility();
}

}  // namespace kestrow
