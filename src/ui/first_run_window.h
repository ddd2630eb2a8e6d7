#pragma once

#include <QWidget>
#include <functional>
#include <vector>

#include "app/first_run_steps.h"

class QLabel;
class QVBoxLayout;

namespace kestrow {

class StepCardWidget;

// The welcome window: title, headline, the numbered setup steps and a footer pointing at the tray
// icon. Everything it shows comes from `firstRunContent` for the facts read at the last refresh.
// Closing only hides it; the owner keeps it and presents it again.
class FirstRunWindow : public QWidget {
    Q_OBJECT

public:
    using FactsSource = std::function<FirstRunFacts()>;
    using ActionHandler = std::function<void(StepAction)>;

    FirstRunWindow(FactsSource readFacts, ActionHandler perform, QWidget* parent = nullptr);

    // Re-reads the facts, then shows the window in front with focus (centred the first time).
    void present();
    // Re-reads the facts and re-renders; runs after every button's action as well.
    void refresh();

    const std::vector<StepCardWidget*>& cards() const { return cards_; }
    // What needs doing first (no backup yet); hidden when nothing does.
    QLabel& notice() const { return *notice_; }

private:
    void perform(StepAction action);
    void centreOnScreen();

    FactsSource readFacts_;
    ActionHandler perform_;
    QLabel* title_;
    QLabel* headline_;
    QLabel* notice_;
    QLabel* footer_;
    QVBoxLayout* cardColumn_;
    std::vector<StepCardWidget*> cards_;
    bool placed_ = false;
};

}  // namespace kestrow
