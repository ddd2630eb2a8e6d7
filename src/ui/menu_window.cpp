#include "ui/menu_window.h"

#include <QCheckBox>
#include <QCursor>
#include <QEvent>
#include <QFrame>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
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
// Less room than this beside the icon, and the panel takes the roomier side instead.
constexpr int kUsefulHeight = 160;

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

    auto* frame = new QVBoxLayout(this);
    // The panel's size is set by fit(), from the content and the room on the screen.
    frame->setSizeConstraint(QLayout::SetNoConstraint);
    frame->setContentsMargins(6, 10, 6, 6);
    frame->setSpacing(0);

    scroll_ = new QScrollArea(this);
    scroll_->setObjectName(QStringLiteral("menuScroll"));
    scroll_->setFrameShape(QFrame::NoFrame);
    scroll_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll_->setWidgetResizable(true);
    scroll_->setBackgroundRole(QPalette::Window);
    content_ = new QWidget;
    content_->setObjectName(QStringLiteral("menuContent"));
    content_->setBackgroundRole(QPalette::Window);
    auto* column = new QVBoxLayout(content_);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    column->addStrut(std::max(270, fontMetrics().averageCharWidth() * 42));

    alertArea_ = new QWidget(content_);
    alertArea_->setObjectName(QStringLiteral("alertArea"));
    auto* alertLayout = new QVBoxLayout(alertArea_);
    alertLayout->setContentsMargins(0, 0, 0, 0);
    alertLayout->setSpacing(0);
    column->addWidget(alertArea_);

    for (const SectionTitle& entry : kSections) {
        auto* header = new QLabel(QString::fromUtf8(entry.title), content_);
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

        auto* body = new QWidget(content_);
        body->setObjectName(QStringLiteral("sectionBody"));
        auto* bodyLayout = new QVBoxLayout(body);
        bodyLayout->setContentsMargins(0, 2, 0, 0);
        bodyLayout->setSpacing(2);
        sections_[indexOf(entry.section)] = body;

        if (entry.section != kSections.front().section) column->addSpacing(10);
        column->addWidget(header);
        column->addWidget(body);
    }
    column->addStretch(1);
    scroll_->setWidget(content_);
    frame->addWidget(scroll_);
    content_->installEventFilter(this);

    auto* separator = new QFrame(this);
    separator->setFrameShape(QFrame::HLine);
    separator->setFrameShadow(QFrame::Plain);
    QPalette separatorPalette = separator->palette();
    separatorPalette.setColor(QPalette::WindowText, blend(window, text, 0.18));
    separator->setPalette(separatorPalette);
    frame->addSpacing(12);
    frame->addWidget(separator);
    frame->addSpacing(6);

    startAtLogin_ = new QCheckBox(QStringLiteral("Start at login"), this);
    startAtLogin_->setObjectName(QStringLiteral("startAtLogin"));
    startAtLogin_->setFocusPolicy(Qt::NoFocus);
    startAtLogin_->setContentsMargins(kItemIndent, 0, kItemIndent, 0);
    startAtLogin_->setStyleSheet(
        QStringLiteral("QCheckBox { padding: 4px %1px; }").arg(kItemIndent));
    frame->addWidget(startAtLogin_);

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
    frame->addWidget(quitButton);
}

QWidget* MenuWindow::sectionBody(MenuSection section) const {
    return sections_[indexOf(section)];
}

QRect MenuWindow::placement(const QSize& size, const QRect& anchor, const QRect& available) {
    const int width = std::min(size.width(), available.width());
    const auto clampInto = [](int value, int low, int length, int room) {
        return std::clamp(value, low, std::max(low, low + room - length));
    };
    // An icon in a side panel lies left or right of the free area: the panel opens beside it.
    if (anchor.right() < available.left() || anchor.left() > available.right()) {
        const int height = std::min(size.height(), available.height());
        const bool iconAtLeft = anchor.center().x() < available.center().x();
        const int x = iconAtLeft
                          ? std::max(available.left(), anchor.right() + 1 + kGapToIcon)
                          : std::min(available.right() + 1, anchor.left() - kGapToIcon) - width;
        const int y = clampInto(anchor.center().y() - height / 2, available.top(), height,
                                available.height());
        return {x, y, width, height};
    }
    const int roomBelow = available.bottom() + 1 - (anchor.bottom() + 1 + kGapToIcon);
    const int roomAbove = anchor.top() - kGapToIcon - available.top();
    bool below = anchor.center().y() < available.center().y();
    // Too little room on the icon's own side, say an icon low in a top panel's overflow: the
    // roomier side is used.
    if ((below ? roomBelow : roomAbove) < std::min(kUsefulHeight, size.height()))
        below = roomBelow >= roomAbove;
    const int room = std::clamp(below ? roomBelow : roomAbove, 0, available.height());
    const int height = std::min(size.height(), room);
    const int top = below ? std::max(available.top(), anchor.bottom() + 1 + kGapToIcon)
                          : std::min(available.bottom() + 1, anchor.top() - kGapToIcon) - height;
    const int x =
        clampInto(anchor.center().x() - width / 2, available.left(), width, available.width());
    return {x, top, width, height};
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
    const QRect available = screen ? screen->availableGeometry() : QRect();
    // No icon and no pointer on a screen: the top right corner, where a tray would be.
    if (anchor.isEmpty() && !available.isEmpty())
        anchor = QRect(available.topRight() + QPoint(0, -1), QSize(1, 1));
    showWithin(anchor, available);
}

void MenuWindow::showWithin(const QRect& trayGeometry, const QRect& available) {
    anchor_ = trayGeometry;
    available_ = available;
    Q_EMIT aboutToShow();
    // A layout counts only children that are shown, and the children of a window not shown yet
    // are not: the first fit only places the panel near enough, the second, once shown, sizes
    // it for everything it holds.
    fit();
    show();
    fit();
    raise();
    activateWindow();
}

void MenuWindow::fit() {
    auto* frame = layout();
    frame->activate();
    content_->layout()->activate();
    const QMargins margins = frame->contentsMargins();
    const int contentHeight = content_->sizeHint().height();
    // Everything but the scrolling part: margins, the switch, Quit and the space between. The
    // scroll area's own share is taken as the layout sees it, which follows the fixed size set
    // by the last fit.
    const QLayoutItem* scrollItem = frame->itemAt(frame->indexOf(scroll_));
    const int footer = frame->sizeHint().height() - scrollItem->sizeHint().height();
    const int scrollBar = scroll_->verticalScrollBar()->sizeHint().width();
    const int contentWidth = content_->sizeHint().width();
    const int chromeWidth = margins.left() + margins.right();
    QSize wanted(contentWidth + chromeWidth, contentHeight + footer);
    if (available_.isEmpty()) {
        scroll_->setFixedSize(contentWidth, contentHeight);
        setFixedSize(wanted);
        return;
    }
    QRect place = placement(wanted, anchor_, available_);
    if (place.height() < wanted.height()) {
        // The sections scroll: room for the bar beside them, then placed again for that width.
        wanted.rwidth() += scrollBar;
        place = placement(wanted, anchor_, available_);
    }
    const int scrollHeight = std::max(0, place.height() - footer);
    scroll_->setFixedSize(place.width() - chromeWidth, scrollHeight);
    setFixedSize(place.size());
    move(place.topLeft());
}

bool MenuWindow::eventFilter(QObject* watched, QEvent* event) {
    // A section that grows or shrinks while the panel is open resizes it, still within the room.
    if (watched == content_ && event->type() == QEvent::LayoutRequest && isVisible())
        QMetaObject::invokeMethod(
            this, [this] { fit(); }, Qt::QueuedConnection);
    return QWidget::eventFilter(watched, event);
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
