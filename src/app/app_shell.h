#pragma once

namespace kestrow {

// What the app's launch and reopen rules need from the windowing side: the tray icon and the
// first-run window. The UI implements it; a headless run implements it without windows.
class AppShell {
public:
    virtual ~AppShell() = default;
    virtual bool hasVisibleWindows() const = 0;
    // Builds the first-run window on first need, puts it in front and gives it focus.
    virtual void showFirstRunWindow() = 0;
    // Makes the tray icon present again (it may have been hidden while protected).
    virtual void showStatusItem() = 0;
    // Opens the menu by itself, next to the icon when there is one.
    virtual void showMenu() = 0;
};

}  // namespace kestrow
