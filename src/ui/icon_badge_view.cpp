#include "ui/icon_badge_view.h"

#include "ui/layout.h"
#include "ui/menu_icons.h"

#include <QPainter>

namespace velt::ui {

IconBadgeView::IconBadgeView(const QString& iconName, const QString& fallbackSymbolName,
                             QWidget* parent)
    : QWidget(parent), iconName_(iconName), fallbackSymbolName_(fallbackSymbolName) {
    setFixedSize(side, side);
    setAttribute(Qt::WA_TransparentForMouseEvents);
}

int IconBadgeView::imageSide(const QString& iconName) {
    return iconName == QLatin1String("close") ? 10 : 14;
}

void IconBadgeView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(contrastTint(palette(), 0.13));
    painter.drawEllipse(rect());
    const int imageSize = imageSide(iconName_);
    const QPixmap image = menuIconImage(iconName_, fallbackSymbolName_, imageSize,
                                        secondaryLabelColor(palette()), devicePixelRatioF());
    const int offset = (side - imageSize) / 2;
    painter.drawPixmap(offset, offset, image);
}

}  // namespace velt::ui
