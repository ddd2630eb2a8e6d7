#pragma once

#include <QWidget>
#include <functional>
#include <memory>

#include "backup/backup_source.h"
#include "menu/menu_alert_text.h"
#include "menu/menu_alerts.h"
#include "support/observable.h"

class QPushButton;
class QVBoxLayout;

namespace kestrow {

class MenuAlertFeed;

// The alert cards at the top of the menu: the two most urgent, and a control that shows the rest.
// Each card's buttons go back through `act` with the alert they belong to. The texts are worded
// for Linux and for `source`, the active backup source, when given.
class AlertCardsView : public QWidget {
    Q_OBJECT

public:
    using Act = std::function<void(MenuAlertAction action, const MenuAlert& alert)>;

    using SourceName = Observable<std::optional<BackupSourceName>>;

    AlertCardsView(MenuAlertFeed& feed, Act act, QWidget* parent = nullptr,
                   SourceName* source = nullptr);
    ~AlertCardsView() override;

    // Null when there is nothing to hide or show again.
    QPushButton* toggle() const { return toggle_; }
    bool showingAll() const { return showAll_; }

private:
    void rebuild();
    QWidget* card(const MenuAlert& alert);

    MenuAlertFeed& feed_;
    Act act_;
    SourceName* source_;
    bool showAll_ = false;
    QVBoxLayout* cards_ = nullptr;
    QPushButton* toggle_ = nullptr;
    // Kept out of this header: the core's signal type clashes with Qt's keyword macros.
    struct Subscription;
    std::unique_ptr<Subscription> subscription_;
};

}  // namespace kestrow
