#pragma once

#include <QElapsedTimer>
#include <QWidget>
#include <array>
#include <functional>

class QCheckBox;
class QScrollArea;
class QVBoxLayout;

namespace kestrow {

// The sections of the tray popover, top to bottom. Each subsystem fills its own section.
enum class MenuSection { backup, networkShares, keepAwake, weeklyCleaners, disk };

// The popover the tray icon opens: a frameless panel with one header per section, then the
// "Start at login" switch and "Quit Kestrow". It hides itself when it loses focus, the way a menu
// does. The sections scroll, so the panel never grows past the screen's free area, and it sits
// beside the icon, never over it.
class MenuWindow : public QWidget {
    Q_OBJECT

public:
    explicit MenuWindow(std::function<void()> quit, QWidget* parent = nullptr);

    // The empty area under a section's header, laid out top to bottom.
    QWidget* sectionBody(MenuSection section) const;
    // Above the first section, for what needs acting on first; empty and taking no room unless
    // something is put there.
    QWidget* alertArea() const { return alertArea_; }
    // The "Start at login" switch; whoever owns the login item sets and follows it.
    QCheckBox* startAtLogin() const { return startAtLogin_; }
    QScrollArea* scrollArea() const { return scroll_; }

    // Shows the panel next to `trayGeometry`; an empty rectangle means "no known icon position",
    // and the panel goes to the cursor, or to the top right of the screen.
    void showNear(const QRect& trayGeometry);
    // The same within `available`, the free area of the screen the icon is on.
    void showWithin(const QRect& trayGeometry, const QRect& available);
    void toggle(const QRect& trayGeometry = {});

    // Where a panel that would like to be `size` goes for an icon at `anchor`, and how big it
    // may be: under an icon in the upper half of the screen, above one in the lower half, beside
    // one in a side panel; inside `available` and off the icon. The height is cut to the room
    // on that side (the sections scroll); the width only to `available`.
    static QRect placement(const QSize& size, const QRect& anchor, const QRect& available);

Q_SIGNALS:
    // Before the panel shows, so that what it holds can be brought up to date.
    void aboutToShow();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void changeEvent(QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    void dismiss();
    // Sizes and places the panel for its content now, within the last area it was shown in.
    void fit();

    std::function<void()> quit_;
    std::array<QWidget*, 5> sections_{};
    QWidget* alertArea_ = nullptr;
    QWidget* content_ = nullptr;
    QScrollArea* scroll_ = nullptr;
    QCheckBox* startAtLogin_ = nullptr;
    QRect anchor_;
    QRect available_;
    QElapsedTimer hiddenOnDeactivation_;
};

}  // namespace kestrow
