#include "ui/group_view.h"

#include "ui/layout.h"

#include <QPainter>
#include <QPainterPath>
#include <QVBoxLayout>

namespace velt::ui {

GroupView::GroupView(GroupStyle style, const std::vector<QWidget*>& rows, QWidget* parent)
    : QWidget(parent), style_(style) {
    setFixedWidth(contentWidth);
    auto* layout = new QVBoxLayout(this);
    layout->setSpacing(0);
    const int inset = style == GroupStyle::panel ? 2 : 0;
    layout->setContentsMargins(0, inset, 0, inset);
    layout->setSizeConstraint(QLayout::SetFixedSize);
    for (QWidget* row : rows) layout->addWidget(row, 0, Qt::AlignLeft);
}

void GroupView::paintEvent(QPaintEvent*) {
    if (style_ != GroupStyle::panel) return;
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF card = QRectF(rect()).adjusted(0.35, 0.35, -0.35, -0.35);
    painter.setBrush(contrastTint(palette(), 0.07));
    painter.setPen(QPen(contrastTint(palette(), 0.1), 0.7));
    painter.drawRoundedRect(card, 11, 11);
}

CollapsibleContainerView::CollapsibleContainerView(QWidget* content, QWidget* parent)
    : QWidget(parent), content_(content) {
    setFixedWidth(contentWidth);
    content_->setParent(this);
    content_->move(0, 0);
    content_->resize(contentWidth, naturalHeight());
}

int CollapsibleContainerView::naturalHeight() const {
    return content_->sizeHint().height();
}

void CollapsibleContainerView::resizeEvent(QResizeEvent*) {
    // Pinned to the top at its full height: the container's own bounds clip it. Folded away
    // entirely, it is hidden, so that the keyboard does not land on rows nobody sees.
    content_->setGeometry(0, 0, contentWidth, naturalHeight());
    content_->setVisible(height() > 0);
}

Separator::Separator(QWidget* parent) : QWidget(parent) {
    setFixedSize(contentWidth, 1);
}

void Separator::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.fillRect(rect(), contrastTint(palette(), 0.12));
}

}  // namespace velt::ui
