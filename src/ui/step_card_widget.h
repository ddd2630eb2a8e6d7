#pragma once

#include <QWidget>
#include <functional>

#include "app/first_run_steps.h"

class QLabel;
class QPushButton;

namespace kestrow {

class StepBadge;

// One numbered card of the first-run window: badge, bold title, wrapped text and a button that
// hands the card's action back to the owner.
class StepCardWidget : public QWidget {
    Q_OBJECT

public:
    using ActionHandler = std::function<void(StepAction)>;

    explicit StepCardWidget(ActionHandler onAction, QWidget* parent = nullptr);

    void setCard(const StepCard& card);
    const StepCard& card() const { return card_; }
    bool done() const { return card_.done; }

    StepBadge* badge() const { return badge_; }
    QLabel* titleLabel() const { return title_; }
    QLabel* textLabel() const { return text_; }
    QPushButton* button() const { return button_; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    ActionHandler onAction_;
    StepCard card_;
    StepBadge* badge_;
    QLabel* title_;
    QLabel* text_;
    QPushButton* button_;
};

}  // namespace kestrow
