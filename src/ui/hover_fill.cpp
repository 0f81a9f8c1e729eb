#include "ui/hover_fill.h"

#include "ui/layout.h"

#include <QEvent>
#include <QPainter>
#include <QWidget>

namespace velt::ui {

HoverFill::HoverFill(QWidget* row, bool enabled) : QObject(row), row_(row), enabled_(enabled) {
    row_->installEventFilter(this);
    connect(&animation_, &QVariantAnimation::valueChanged, this, [this](const QVariant& value) {
        strength_ = value.toDouble();
        row_->update();
    });
}

void HoverFill::setRowHovering(bool hovering, bool animated, bool force) {
    if (!force && hovering == hovering_) return;
    hovering_ = hovering;
    const double target = hovering && enabled_ ? 1.0 : 0.0;
    animation_.stop();
    if (!animated || !enabled_) {
        strength_ = target;
        row_->update();
        return;
    }
    animation_.setStartValue(strength_);
    animation_.setEndValue(target);
    animation_.setDuration(hovering ? 120 : 100);
    animation_.setEasingCurve(hovering ? QEasingCurve::OutCubic : QEasingCurve::InCubic);
    animation_.start();
}

bool HoverFill::eventFilter(QObject* watched, QEvent* event) {
    if (watched == row_ && event->type() == QEvent::Enter) setRowHovering(true, true);
    if (watched == row_ && event->type() == QEvent::Leave) setRowHovering(false, true);
    return false;
}

void HoverFill::paint(QPainter& painter) const {
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(color());
    painter.drawRoundedRect(row_->rect(), 12, 12);
    painter.restore();
}

QColor HoverFill::color() const {
    return contrastTint(row_->palette(), 0.11 * strength_);
}

}  // namespace velt::ui
