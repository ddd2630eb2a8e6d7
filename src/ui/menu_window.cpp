#include "ui/menu_window.h"

#include <QCursor>
#include <QEvent>
#include <QFrame>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QScreen>
#include <QVBoxLayout>
#include <algorithm>

#include "ui/color_blend.h"

namespace kestrow {

namespace {

constexpr int kGapToIcon = 6;
constexpr int kItemIndent = 8;
// A click on the tray icon first takes focus from the panel (which hides it) and then arrives as
// a toggle; within this window that toggle must not bring the panel straight back.
constexpr qint64 kReopenGuardMs = 300;

struct SectionTitle {
    MenuSection section;
    const char* title;
};

constexpr std::array<SectionTitle, 5> kSections{{
    {MenuSection::backup, "Backup"},
    {MenuSection::networkShares, "Network Shares"},
    {MenuSection::keepAwake, "Keep Awake"},
    {MenuSection::weeklyCleaners, "Weekly cleaners"},
    {MenuSection::disk, "Disk"},
}};

std::size_t indexOf(MenuSection section) {
    return static_cast<std::size_t>(section);
}

}  // namespace

MenuWindow::MenuWindow(std::function<void()> quit, QWidget* parent)
    : QWidget(parent, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint),
      quit_(std::move(quit)) {
    setObjectName(QStringLiteral("menuWindow"));
    setWindowTitle(QStringLiteral("Kestrow"));
    setBackgroundRole(QPalette::Window);
    setAutoFillBackground(true);

    const QColor window = palette().color(QPalette::Window);
    const QColor text = palette().color(QPalette::WindowText);

    auto* column = new QVBoxLayout(this);
    column->setSizeConstraint(QLayout::SetFixedSize);
    column->setContentsMargins(6, 10, 6, 6);
    column->setSpacing(0);
    column->addStrut(std::max(270, fontMetrics().averageCharWidth() * 42));

    alertArea_ = new QWidget(this);
    alertArea_->setObjectName(QStringLiteral("alertArea"));
    auto* alertLayout = new QVBoxLayout(alertArea_);
    alertLayout->setContentsMargins(0, 0, 0, 0);
    alertLayout->setSpacing(0);
    column->addWidget(alertArea_);

    for (const SectionTitle& entry : kSections) {
        auto* header = new QLabel(QString::fromUtf8(entry.title), this);
        header->setObjectName(QStringLiteral("sectionHeader"));
        // Indented like the item buttons' text, so headers and items share one left edge.
        header->setContentsMargins(kItemIndent, 0, kItemIndent, 0);
        QFont font = header->font();
        font.setBold(true);
        font.setPointSizeF(font.pointSizeF() * 0.92);
        header->setFont(font);
        QPalette pal = header->palette();
        pal.setColor(QPalette::WindowText, blend(window, text, 0.6));
        header->setPalette(pal);

        auto* body = new QWidget(this);
        body->setObjectName(QStringLiteral("sectionBody"));
        auto* bodyLayout = new QVBoxLayout(body);
        bodyLayout->setContentsMargins(0, 2, 0, 0);
        bodyLayout->setSpacing(2);
        sections_[indexOf(entry.section)] = body;

        if (entry.section != kSections.front().section) column->addSpacing(10);
        column->addWidget(header);
        column->addWidget(body);
    }

    auto* separator = new QFrame(this);
    separator->setFrameShape(QFrame::HLine);
    separator->setFrameShadow(QFrame::Plain);
    QPalette separatorPalette = separator->palette();
    separatorPalette.setColor(QPalette::WindowText, blend(window, text, 0.18));
    separator->setPalette(separatorPalette);
    column->addSpacing(12);
    column->addWidget(separator);
    column->addSpacing(6);

    auto* quitButton = new QPushButton(QStringLiteral("Quit Kestrow"), this);
    quitButton->setObjectName(QStringLiteral("quit"));
    quitButton->setAutoDefault(false);
    quitButton->setCursor(Qt::PointingHandCursor);
    // Like a menu item: no focus ring sitting on it the moment the panel opens.
    quitButton->setFocusPolicy(Qt::NoFocus);
    quitButton->setStyleSheet(
        QStringLiteral("QPushButton { text-align: left; padding: 5px %1px; border: none;"
                       " border-radius: 4px; background: transparent; }"
                       "QPushButton:hover { background: palette(highlight);"
                       " color: palette(highlighted-text); }")
            .arg(kItemIndent));
    connect(quitButton, &QPushButton::clicked, this, [this] {
        dismiss();
        if (quit_) quit_();
    });
    column->addWidget(quitButton);
}

QWidget* MenuWindow::sectionBody(MenuSection section) const {
    return sections_[indexOf(section)];
}

QPoint MenuWindow::placement(const QSize& size, const QRect& anchor, const QRect& available) {
    const bool iconAtTop = anchor.center().y() < available.center().y();
    int x = anchor.center().x() - size.width() / 2;
    int y =
        iconAtTop ? anchor.bottom() + 1 + kGapToIcon : anchor.top() - kGapToIcon - size.height();
    const int maxX = std::max(available.left(), available.right() + 1 - size.width());
    const int maxY = std::max(available.top(), available.bottom() + 1 - size.height());
    x = std::clamp(x, available.left(), maxX);
    y = std::clamp(y, available.top(), maxY);
    return {x, y};
}

void MenuWindow::showNear(const QRect& trayGeometry) {
    QRect anchor = trayGeometry;
    QScreen* screen = nullptr;
    if (anchor.isEmpty()) {
        const QPoint cursor = QCursor::pos();
        screen = QGuiApplication::screenAt(cursor);
        if (screen) anchor = QRect(cursor, QSize(1, 1));
    } else {
        screen = QGuiApplication::screenAt(anchor.center());
    }
    if (!screen) screen = QGuiApplication::primaryScreen();
    if (screen) {
        const QRect available = screen->availableGeometry();
        if (anchor.isEmpty()) anchor = QRect(available.topRight(), QSize(1, 1));
        adjustSize();
        move(placement(size(), anchor, available));
    }
    show();
    raise();
    activateWindow();
}

void MenuWindow::toggle(const QRect& trayGeometry) {
    if (isVisible()) {
        dismiss();
        return;
    }
    if (hiddenOnDeactivation_.isValid() && hiddenOnDeactivation_.elapsed() < kReopenGuardMs) {
        hiddenOnDeactivation_.invalidate();
        return;
    }
    showNear(trayGeometry);
}

void MenuWindow::dismiss() {
    hide();
    // Hiding gives focus away, which reads like a click elsewhere; this hide was on purpose.
    hiddenOnDeactivation_.invalidate();
}

void MenuWindow::changeEvent(QEvent* event) {
    QWidget::changeEvent(event);
    if (event->type() == QEvent::ActivationChange && isVisible() && !isActiveWindow()) {
        hiddenOnDeactivation_.start();
        hide();
    }
}

void MenuWindow::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Escape) {
        dismiss();
        return;
    }
    QWidget::keyPressEvent(event);
}

void MenuWindow::paintEvent(QPaintEvent* /*event*/) {
    // Frameless, so the panel draws its own edge to stand apart from what lies behind it.
    QPainter painter(this);
    const QColor window = palette().color(QPalette::Window);
    painter.setPen(blend(window, palette().color(QPalette::WindowText), 0.25));
    painter.setBrush(Qt::NoBrush);
    painter.drawRect(rect().adjusted(0, 0, -1, -1));
}

}  // namespace kestrow
