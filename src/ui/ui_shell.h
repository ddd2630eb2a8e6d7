#pragma once

#include <QIcon>
#include <QObject>
#include <QPointer>
#include <functional>
#include <memory>

#include "app/app_shell.h"
#include "app/first_run_steps.h"
#include "menu/restic_job_form.h"
#include "ui/restic_job_editor_dialog.h"
#include "ui/share_editor_dialog.h"

class QMenu;
class QSystemTrayIcon;

namespace kestrow {

class FirstRunWindow;
class MenuBarState;
class MenuWindow;

// The desktop side of the app: the tray icon (when the desktop has a tray), its popover and the
// first-run window. It follows MenuBarState for the icon and hands every user action back
// through the callbacks it was given, except the first-run window's "Create Backup…" and "Add
// Server…", which open the restic job editor and the share editor when it has them. Main thread
// only.
class UiShell : public QObject, public AppShell {
    Q_OBJECT

public:
    UiShell(MenuBarState& menu, std::function<FirstRunFacts()> readFirstRunFacts,
            std::function<void(StepAction)> performStep, std::function<void()> quit,
            ResticJobEditor* jobEditor = nullptr, ResticJobForm newJob = {},
            ShareControl* shares = nullptr, VPNServicesObservable* vpns = nullptr,
            QObject* parent = nullptr);
    ~UiShell() override;

    bool hasVisibleWindows() const override;
    void showFirstRunWindow() override;
    void showStatusItem() override;
    void showMenu() override { showMenuWindow(); }

    bool hasTray() const { return tray_ != nullptr; }
    // Opens the popover by itself; without a tray this is how the app stays reachable.
    void showMenuWindow();

    MenuWindow& menuWindow() const { return *menuWindow_; }
    // Null until the first-run window is first needed.
    FirstRunWindow* firstRunWindow() const { return firstRun_.get(); }
    // The restic job editor the first-run window opened, while it is open.
    ResticJobEditorDialog* jobDialog() const { return jobDialog_; }
    // The share editor the first-run window opened, while it is open.
    ShareEditorDialog* shareDialog() const { return shareDialog_; }
    // Null when the desktop has no tray.
    QSystemTrayIcon* trayIcon() const { return tray_.get(); }

private:
    void createTray();
    void applyIconAttention(bool hasError);
    void perform(StepAction action);
    FirstRunFacts firstRunFacts() const;
    void openShareEditor();

    MenuBarState& menu_;
    std::function<FirstRunFacts()> readFirstRunFacts_;
    std::function<void(StepAction)> performStep_;
    std::function<void()> quit_;
    ResticJobEditor* jobEditor_;
    ResticJobForm newJob_;
    QPointer<ResticJobEditorDialog> jobDialog_;
    ShareControl* shares_;
    VPNServicesObservable* vpns_;
    QPointer<ShareEditorDialog> shareDialog_;
    QIcon normalIcon_;
    QIcon attentionIcon_;
    std::unique_ptr<MenuWindow> menuWindow_;
    std::unique_ptr<FirstRunWindow> firstRun_;
    std::unique_ptr<QMenu> trayMenu_;
    std::unique_ptr<QSystemTrayIcon> tray_;
    // Declared last so the icon stops following MenuBarState before the tray goes away. Kept out
    // of this header: the core's signal type clashes with Qt's keyword macros.
    struct Subscriptions;
    std::unique_ptr<Subscriptions> subscriptions_;
};

}  // namespace kestrow
