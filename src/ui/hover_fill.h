// The hover highlight every clickable row shares: a rounded fill in the control tint that fades
// in over 0.12 s (ease-out) when the pointer enters and out over 0.10 s (ease-in) when it
// leaves. The row owns one HoverFill, which follows the pointer over the row by itself; the row
// calls paint() first in its paintEvent.
//
// Main thread only.
#pragma once

#include <QColor>
#include <QObject>
#include <QVariantAnimation>

class QPainter;
class QWidget;

namespace velt::ui {

class HoverFill : public QObject {
  public:
    // `row` is repainted while the fill changes; `enabled` false keeps the fill clear for good
    // (the pop-up rows never show it).
    explicit HoverFill(QWidget* row, bool enabled = true);

    bool rowHovering() const { return hovering_; }
    // Unless `force`, nothing happens when the flag already has this value, so re-entering a
    // highlighted row does not restart its animation.
    void setRowHovering(bool hovering, bool animated, bool force = false);
    // The fill to paint now.
    QColor color() const;
    // Draws the fill over the whole row, with the rows' 12-pixel corners.
    void paint(QPainter& painter) const;
    // Whether a fade is under way.
    bool isAnimating() const { return animation_.state() == QAbstractAnimation::Running; }

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    QWidget* row_;
    bool enabled_;
    bool hovering_ = false;
    double strength_ = 0.0;  // 0 = clear, 1 = the full hover tint
    QVariantAnimation animation_;
};

}  // namespace velt::ui
