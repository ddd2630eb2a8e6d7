#pragma once

#include "app/app_shell.h"
#include "support/logger.h"
#include "support/wording.h"

namespace kestrow {

// The shell when there is no display: the services run and the log says what a window would
// have shown.
class HeadlessShell final : public AppShell {
public:
    HeadlessShell(Logger log, Wording wording) : log_(log), wording_(std::move(wording)) {}
    bool hasVisibleWindows() const override { return false; }
    void showFirstRunWindow() override {
        log_.once(note_, LogLevel::notice,
                  wording_("No display: the first-run window cannot be shown; Kestrow cannot read "
                           "the Time Machine settings yet"));
    }
    void showStatusItem() override {}
    void showMenu() override {}

private:
    Logger log_;
    Wording wording_;
    OnceLog note_;
};

}  // namespace kestrow
