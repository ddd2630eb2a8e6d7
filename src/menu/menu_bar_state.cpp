#include "menu/menu_bar_state.h"

#include "app/settings/standard_settings.h"

namespace kestrow {

MenuBarState::MenuBarState(SettingsStore& standardStore, Executor& mainExecutor)
    : standardStore_(standardStore), mainExecutor_(mainExecutor) {}

void MenuBarState::setProtected(bool isProtected) {
    protected_ = isProtected;
    reevaluateIconVisibility();
}

void MenuBarState::reevaluateIconVisibility() {
    if (pendingHide_) mainExecutor_.cancel(*pendingHide_);
    pendingHide_.reset();
    const StandardSettings settings(standardStore_);
    if (!(protected_ && settings.hideIconWhenProtected())) {
        iconVisible_.set(true);
        return;
    }
    pendingHide_ = mainExecutor_.postAfter(settings.hideIconDelaySeconds(), [this] {
        pendingHide_.reset();
        iconVisible_.set(false);
    });
}

}  // namespace kestrow
