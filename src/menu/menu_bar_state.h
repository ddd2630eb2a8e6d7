#pragma once

#include <optional>

#include "support/executor.h"
#include "support/observable.h"

namespace kestrow {

class SettingsStore;

// The menu snapshot that the UI reads on the main thread. It grows with each subsystem; for now
// it carries the tray icon's visibility and attention state.
class MenuBarState {
public:
    MenuBarState(SettingsStore& standardStore, Executor& mainExecutor);

    Observable<bool>& iconVisible() { return iconVisible_; }
    Observable<bool>& iconHasError() { return iconHasError_; }

    // Whether the last verdict was "protected"; the auto-hide setting hides the icon only then.
    void setProtected(bool isProtected);
    // Applies the auto-hide setting to the current verdict: when the icon should go, it goes after
    // the chosen delay, so an icon just brought back by the user is seen first.
    void reevaluateIconVisibility();
    // The user opened the app again: the icon shows at once and stays, whatever the auto-hide
    // setting says, until the verdict next changes between protected and not.
    void holdIconVisible();
    void setIconHasError(bool hasError) { iconHasError_.set(hasError); }

private:
    SettingsStore& standardStore_;
    Executor& mainExecutor_;
    std::optional<TaskId> pendingHide_;
    bool protected_ = false;
    bool held_ = false;
    Observable<bool> iconVisible_{true};
    Observable<bool> iconHasError_{false};
};

}  // namespace kestrow
