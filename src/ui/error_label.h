#pragma once

#include <QLabel>
#include <QPalette>

#include "ui/rings_view.h"

namespace kestrow {

// A line that says what went wrong, in the failed ring's colour, so every error in the menu reads
// alike. Hidden until there is something to say; plain text, because the words come from outside.
inline void makeErrorLabel(QLabel* label) {
    label->setWordWrap(true);
    label->setTextFormat(Qt::PlainText);
    QPalette palette = label->palette();
    palette.setColor(QPalette::WindowText, RingsView::failedColor());
    label->setPalette(palette);
    label->hide();
}

}  // namespace kestrow
