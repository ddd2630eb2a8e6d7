#pragma once

#include <QColor>
#include <QWidget>

namespace kestrow {

// The round marker at the left of a step card: the step's number while the step is open, a
// filled green circle with a white check mark once it is done.
class StepBadge : public QWidget {
    Q_OBJECT

public:
    explicit StepBadge(QWidget* parent = nullptr);

    void setStep(int number, bool done);
    int number() const { return number_; }
    bool done() const { return done_; }

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

    static QColor doneColor();

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    int number_ = 0;
    bool done_ = false;
};

}  // namespace kestrow
