#include "ui/hover_fill.h"

#include "ui/layout.h"

#include <QWidget>

namespace velt::ui {

HoverFill::HoverFill(QWidget* row, bool enabled) : QObject(row), row_(row), enabled_(enabled) {
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

QColor HoverFill::color() const {
    return contrastTint(row_->palette(), 0.11 * strength_);
}

}  // namespace velt::ui
