#include "menu/menu_bar_state.h"

#include "ui/ui_shell.h"

#include <QMenu>
#include <QSystemTrayIcon>

#include "ui/first_run_window.h"
#include "ui/menu_window.h"
#include "ui/restic_job_editor_dialog.h"
#include "ui/rings_icon.h"

namespace kestrow {

struct UiShell::Subscriptions {
    Signal<bool>::Connection visible;
    Signal<bool>::Connection error;
};

UiShell::UiShell(MenuBarState& menu, std::function<FirstRunFacts()> readFirstRunFacts,
                 std::function<void(StepAction)> performStep, std::function<void()> quit,
                 ResticJobEditor* jobEditor, ResticJobForm newJob, ShareControl* shares,
                 VPNServicesObservable* vpns, QObject* parent)
    : QObject(parent),
      menu_(menu),
      readFirstRunFacts_(std::move(readFirstRunFacts)),
      performStep_(std::move(performStep)),
      quit_(std::move(quit)),
      jobEditor_(jobEditor),
      newJob_(std::move(newJob)),
      shares_(shares),
      vpns_(vpns),
      normalIcon_(RingsIcon::icon(RingsIcon::Variant::normal)),
      attentionIcon_(RingsIcon::icon(RingsIcon::Variant::attention)),
      menuWindow_(std::make_unique<MenuWindow>([this] {
          if (quit_) quit_();
      })) {
    if (QSystemTrayIcon::isSystemTrayAvailable()) createTray();
}

UiShell::~UiShell() {
    delete jobDialog_.data();
    delete shareDialog_.data();
}

void UiShell::createTray() {
    trayMenu_ = std::make_unique<QMenu>();
    trayMenu_->addAction(QStringLiteral("Open Kestrow"), this, [this] { showMenuWindow(); });
    trayMenu_->addSeparator();
    trayMenu_->addAction(QStringLiteral("Quit Kestrow"), this, [this] {
        if (quit_) quit_();
    });

    tray_ = std::make_unique<QSystemTrayIcon>();
    tray_->setToolTip(QStringLiteral("Kestrow"));
    tray_->setContextMenu(trayMenu_.get());
    applyIconAttention(menu_.iconHasError().get());
    connect(tray_.get(), &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                if (reason == QSystemTrayIcon::Trigger) menuWindow_->toggle(tray_->geometry());
            });

    tray_->setVisible(menu_.iconVisible().get());
    subscriptions_ = std::make_unique<Subscriptions>();
    subscriptions_->visible =
        menu_.iconVisible().observe([this](const bool& visible) { tray_->setVisible(visible); });
    subscriptions_->error = menu_.iconHasError().observe(
        [this](const bool& hasError) { applyIconAttention(hasError); });
}

void UiShell::applyIconAttention(bool hasError) {
    tray_->setIcon(hasError ? attentionIcon_ : normalIcon_);
}

bool UiShell::hasVisibleWindows() const {
    return menuWindow_->isVisible() || (firstRun_ && firstRun_->isVisible()) ||
           (jobDialog_ && jobDialog_->isVisible()) || (shareDialog_ && shareDialog_->isVisible());
}

void UiShell::showFirstRunWindow() {
    if (!firstRun_) {
        firstRun_ = std::make_unique<FirstRunWindow>(
            [this] { return firstRunFacts(); }, [this](StepAction action) { perform(action); });
    }
    firstRun_->present();
}

FirstRunFacts UiShell::firstRunFacts() const {
    FirstRunFacts facts = readFirstRunFacts_ ? readFirstRunFacts_() : FirstRunFacts{};
    // The share step follows the share manager this shell was given, when it has one.
    facts.canAddServers = shares_ != nullptr;
    if (shares_) facts.hasShares = !shares_->shares().get().empty();
    return facts;
}

void UiShell::openShareEditor() {
    if (!shareDialog_ || !shareDialog_->isVisible()) {
        shareDialog_ = new ShareEditorDialog(*shares_, vpns_);
        shareDialog_->setAttribute(Qt::WA_DeleteOnClose);
        // The first share makes the step done.
        connect(shareDialog_, &QDialog::accepted, this, [this] {
            if (firstRun_) firstRun_->refresh();
        });
    }
    shareDialog_->present();
}

void UiShell::perform(StepAction action) {
    if (action == StepAction::addServer && shares_ != nullptr) {
        openShareEditor();
        return;
    }
    if (action != StepAction::createBackup || jobEditor_ == nullptr) {
        if (performStep_) performStep_(action);
        return;
    }
    if (!jobDialog_) {
        jobDialog_ = new ResticJobEditorDialog(*jobEditor_, newJob_);
        jobDialog_->setAttribute(Qt::WA_DeleteOnClose);
        // The new job makes restic the source: the step shows it done.
        connect(jobDialog_, &QDialog::accepted, this, [this] {
            if (firstRun_) firstRun_->refresh();
        });
    }
    jobDialog_->present();
}

void UiShell::showStatusItem() {
    if (tray_) tray_->show();
}

void UiShell::showMenuWindow() {
    menuWindow_->showNear(tray_ ? tray_->geometry() : QRect());
}

}  // namespace kestrow
