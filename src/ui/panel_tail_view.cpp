#include "ui/panel_tail_view.h"

#include "ui/layout.h"

#include <QPainter>
#include <algorithm>

namespace velt::ui {

PanelTailView::PanelTailView(QWidget* parent) : QWidget(parent) {
    setAttribute(Qt::WA_TranslucentBackground);
}

void PanelTailView::setArrowCenter(int x) {
    const int margin = panelCornerRadius + panelTailWidth / 2;
    arrowCenter_ = std::clamp(x, margin, std::max(margin, width() - margin));
    update();
}

void PanelTailView::setTailOnTop(bool onTop) {
    tailOnTop_ = onTop;
    update();
}

void PanelTailView::setShowsOutline(bool shows) {
    showsOutline_ = shows;
    update();
}

QRect PanelTailView::bodyRect() const {
    return tailOnTop_ ? QRect(0, panelTailHeight, width(), height() - panelTailHeight)
                      : QRect(0, 0, width(), height() - panelTailHeight);
}

QPainterPath PanelTailView::outline() const {
    const QRectF body = QRectF(bodyRect()).adjusted(0.4, 0.4, -0.4, -0.4);
    QPainterPath path;
    path.addRoundedRect(body, panelCornerRadius, panelCornerRadius);
    const double half = panelTailWidth / 2.0;
    const double edge = tailOnTop_ ? body.top() : body.bottom();
    const double apex = tailOnTop_ ? 0.4 : height() - 0.4;
    QPainterPath tail;
    // The base overlaps the body by a pixel so the two shapes join without a seam.
    const double overlap = tailOnTop_ ? 1.0 : -1.0;
    tail.moveTo(arrowCenter_ - half, edge + overlap);
    tail.lineTo(arrowCenter_, apex);
    tail.lineTo(arrowCenter_ + half, edge + overlap);
    tail.closeSubpath();
    return path.united(tail);
}

void PanelTailView::paintEvent(QPaintEvent*) {
    if (!showsOutline_) return;
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    // Opaque: without a compositor a translucent fill shows as a different shade.
    painter.setBrush(palette().color(QPalette::Window));
    painter.setPen(QPen(contrastTint(palette(), 0.14), 0.8));
    painter.drawPath(outline());
}

}  // namespace velt::ui
