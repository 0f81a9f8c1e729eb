#include "ui/tray_status_item.h"

#include "model/constants.h"
#include "ui/layout.h"
#include "ui/menu_icons.h"

#include <QFontMetricsF>
#include <QPainter>
#include <QPainterPath>

namespace velt::ui {
namespace {

constexpr int iconSizes[] = {16, 22, 24, 32, 48, 64};

QColor badgeColor(const QString& badge) {
    if (badge == QLatin1String("!")) return QColor(0xd9, 0x3b, 0x30);
    if (badge == QLatin1String("✓")) return QColor(0x2e, 0x9d, 0x4f);
    return QColor(0x1f, 0x5f, 0xd6);
}

}  // namespace

TrayStatusItem::TrayStatusItem(std::function<void(const QRect&)> onActivate)
    : baseIcon_(statusBarIcon()) {
    tray_.setIcon(baseIcon_);
    tray_.setToolTip(appName);
    connect(&tray_, &QSystemTrayIcon::activated, this,
            [this, onActivate = std::move(onActivate)](QSystemTrayIcon::ActivationReason reason) {
                if (reason == QSystemTrayIcon::Trigger || reason == QSystemTrayIcon::Context ||
                    reason == QSystemTrayIcon::DoubleClick)
                    onActivate(tray_.geometry());
            });
}

QIcon TrayStatusItem::statusBarIcon() {
    QIcon icon;
    for (const int size : iconSizes) {
        const QPixmap image =
            renderSvg(resourceDirectory() + QStringLiteral("/status-icon.svg"), size, 1.0);
        if (image.isNull()) break;
        icon.addPixmap(image);
    }
    if (icon.isNull()) icon = QIcon::fromTheme(themeIconName(QStringLiteral("arrow.down.square")));
    return icon;
}

QString TrayStatusItem::badgeText(const QString& title) {
    const QString trimmed = title.trimmed();
    if (trimmed.isEmpty()) return {};
    if (trimmed.endsWith(QLatin1Char('%'))) return trimmed.chopped(1);
    return trimmed.left(1);  // "!" or "✓"; the tooltip carries the words
}

QPixmap TrayStatusItem::composedIcon(const QIcon& base, const QString& title, int size) {
    QPixmap pixmap = base.pixmap(size, size);
    if (pixmap.isNull()) {
        pixmap = QPixmap(size, size);
        pixmap.fill(Qt::transparent);
    }
    const QString badge = badgeText(title);
    if (badge.isEmpty()) return pixmap;
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::TextAntialiasing);
    const double height = size * 0.56;
    QFont font;
    font.setBold(true);
    font.setPixelSize(qMax(7, qRound(height * 0.82)));
    const double textWidth = QFontMetricsF(font).horizontalAdvance(badge);
    const double width = qMin<double>(size, qMax(height, textWidth + height * 0.45));
    const QRectF pill(size - width, size - height, width, height);
    painter.setPen(QPen(Qt::white, qMax(1.0, size / 22.0)));
    painter.setBrush(badgeColor(badge));
    painter.drawRoundedRect(pill.adjusted(0.5, 0.5, -0.5, -0.5), height / 2, height / 2);
    painter.setFont(font);
    painter.setPen(Qt::white);
    painter.drawText(pill, Qt::AlignCenter, badge);
    return pixmap;
}

void TrayStatusItem::setTitle(const QString& title) {
    if (title == title_) return;
    title_ = title;
    tray_.setToolTip(title.trimmed().isEmpty() ? appName : appName + QStringLiteral(" —") + title);
    if (title.trimmed().isEmpty()) {
        tray_.setIcon(baseIcon_);
        return;
    }
    QIcon icon;
    for (const int size : iconSizes) icon.addPixmap(composedIcon(baseIcon_, title, size));
    tray_.setIcon(icon);
}

}  // namespace velt::ui
