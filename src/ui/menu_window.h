#pragma once

#include <QElapsedTimer>
#include <QWidget>
#include <array>
#include <functional>

class QVBoxLayout;

namespace kestrow {

// The sections of the tray popover, top to bottom. Each subsystem fills its own section.
enum class MenuSection { backup, networkShares, keepAwake, weeklyCleaners, disk };

// The popover the tray icon opens: a frameless panel with one header per section, then "Quit
// Kestrow". It hides itself when it loses focus, the way a menu does.
class MenuWindow : public QWidget {
    Q_OBJECT

public:
    explicit MenuWindow(std::function<void()> quit, QWidget* parent = nullptr);

    // The empty area under a section's header, laid out top to bottom.
    QWidget* sectionBody(MenuSection section) const;
    // Above the first section, for what needs acting on first; empty and taking no room unless
    // something is put there.
    QWidget* alertArea() const { return alertArea_; }

    // Shows the panel next to `trayGeometry`; an empty rectangle means "no known icon position",
    // and the panel goes to the cursor, or to the top right of the screen.
    void showNear(const QRect& trayGeometry);
    void toggle(const QRect& trayGeometry = {});

    // Where a panel of `size` goes for an icon at `anchor`: centred under an icon in the upper
    // half of the screen, above one in the lower half, always inside `available`.
    static QPoint placement(const QSize& size, const QRect& anchor, const QRect& available);

protected:
    void changeEvent(QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    void dismiss();

    std::function<void()> quit_;
    std::array<QWidget*, 5> sections_{};
    QWidget* alertArea_ = nullptr;
    QElapsedTimer hiddenOnDeactivation_;
};

}  // namespace kestrow
