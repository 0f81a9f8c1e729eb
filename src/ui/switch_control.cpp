#include "ui/switch_control.h"

#include "ui/layout.h"

#include <QPainter>

namespace velt::ui {

SwitchControl::SwitchControl(QWidget* parent) : QAbstractButton(parent) {
    setCheckable(true);
    setFixedSize(sizeHint());
    setCursor(Qt::PointingHandCursor);
    setFocusPolicy(Qt::TabFocus);
    slide_.setDuration(120);
    slide_.setEasingCurve(QEasingCurve::OutCubic);
    connect(&slide_, &QVariantAnimation::valueChanged, this, [this](const QVariant& value) {
        position_ = value.toDouble();
        update();
    });
}

// Set from the program (not a click): jump, without animation.
void SwitchControl::checkStateSet() {
    slide_.stop();
    position_ = isChecked() ? 1.0 : 0.0;
    update();
}

void SwitchControl::nextCheckState() {
    QAbstractButton::nextCheckState();
    slide_.stop();
    slide_.setStartValue(position_);
    slide_.setEndValue(isChecked() ? 1.0 : 0.0);
    slide_.start();
}

void SwitchControl::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF track = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    QColor on = palette().color(QPalette::Highlight);
    QColor off = contrastTint(palette(), 0.22);
    QColor fill = position_ >= 0.5 ? on : off;
    if (!isEnabled()) fill.setAlphaF(fill.alphaF() * 0.5f);
    painter.setPen(Qt::NoPen);
    painter.setBrush(fill);
    painter.drawRoundedRect(track, track.height() / 2, track.height() / 2);
    const double knob = track.height() - 4;
    const double x = track.left() + 2 + position_ * (track.width() - knob - 4);
    painter.setBrush(Qt::white);
    painter.setPen(QPen(QColor(0, 0, 0, 40), 0.5));
    painter.drawEllipse(QRectF(x, track.top() + 2, knob, knob));
    // In the label colour, which shows on the track's highlight colour too.
    if (hasFocus() && drawsFocusRing_) {
        QPalette ring = palette();
        ring.setColor(QPalette::Highlight, contrastTint(palette(), 0.55));
        paintFocusRing(painter, rect(), ring);
    }
}

}  // namespace velt::ui
