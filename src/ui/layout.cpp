#include "ui/layout.h"

#include <QPainter>
#include <algorithm>

namespace velt::ui {

QFont uiFont(double pixelSize, QFont::Weight weight) {
    QFont font;
    // Qt takes fractional sizes in points only; 0.75 pt is one pixel at 96 dpi.
    font.setPointSizeF(pixelSize * 0.75);
    font.setWeight(weight);
    return font;
}

// The desktop's sans fonts (DejaVu, Noto, Cantarell) draw their digits at one width already.
QFont monospacedDigitFont(double pixelSize, QFont::Weight weight) {
    return uiFont(pixelSize, weight);
}

QColor contrastTint(const QPalette& palette, double alpha) {
    QColor color = palette.color(QPalette::WindowText).lightnessF() > 0.5 ? QColor(Qt::white)
                                                                          : QColor(Qt::black);
    color.setAlphaF(static_cast<float>(alpha));
    return color;
}

QColor secondaryLabelColor(const QPalette& palette) {
    QColor color = palette.color(QPalette::WindowText);
    color.setAlphaF(0.6f);
    return color;
}

void paintFocusRing(QPainter& painter, const QRect& rect, const QPalette& palette) {
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(palette.color(QPalette::Highlight), 1.5));
    const double radius = std::min(12.0, rect.height() / 2.0);
    painter.drawRoundedRect(QRectF(rect).adjusted(0.75, 0.75, -0.75, -0.75), radius, radius);
    painter.restore();
}

}  // namespace velt::ui
