#include "ui/tray_status_item.h"

#include "model/constants.h"
#include "ui/layout.h"
#include "ui/menu_icons.h"
#include "ui/status_notifier_item.h"

#include <QFontMetricsF>
#include <QGuiApplication>
#include <QPainter>
#include <QPainterPath>
#include <QSystemTrayIcon>

namespace velt::ui {
namespace {

constexpr int iconSizes[] = {16, 22, 24, 32, 48, 64};

bool onWayland() {
    return QGuiApplication::platformName().startsWith(QLatin1String("wayland"));
}

}  // namespace

TrayStatusItem::TrayStatusItem(Kind kind, Handlers handlers)
    : kind_(kind),
      handlers_(std::move(handlers)),
      baseIcon_(statusBarIcon()),
      menu_(std::make_unique<TrayMenu>([this](TrayCommand command) {
          if (handlers_.command) handlers_.command(command);
      })) {
    if (kind_ == Kind::statusNotifier) {
        StatusNotifierItem::Handlers item;
        item.activate = [this](const QPoint& point) {
            handlers_.activate(point.isNull() ? QRect() : QRect(point, QSize(1, 1)));
        };
        // Only trays that cannot draw the menu ask for it; a menu window cannot be placed on
        // Wayland, so the panel stands in for it there.
        item.contextMenu = [this](const QPoint& point) {
            if (onWayland() || point.isNull())
                handlers_.activate(QRect());
            else
                menu_->popup(point);
        };
        item.command = handlers_.command;
        item_ = std::make_unique<StatusNotifierItem>(std::move(item));
        item_->setIcon(baseIcon_);
        published_ = item_->publish();
        return;
    }
    tray_ = std::make_unique<QSystemTrayIcon>();
    tray_->setIcon(baseIcon_);
    tray_->setToolTip(appName);
    tray_->setContextMenu(menu_.get());
    connect(tray_.get(), &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                // The right button opens the context menu, which the tray shows by itself.
                if (reason == QSystemTrayIcon::Trigger || reason == QSystemTrayIcon::DoubleClick)
                    handlers_.activate(tray_->geometry());
            });
    tray_->show();
    published_ = true;
}

TrayStatusItem::~TrayStatusItem() {
    if (tray_) tray_->setContextMenu(nullptr);
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
    return trimmed.left(1);  // "!", "✓" or "▶"; the tooltip carries the words
}

QColor TrayStatusItem::badgeColor(const QString& badge) {
    if (badge == QLatin1String("!")) return QColor(0xd9, 0x3b, 0x30);
    if (badge == QLatin1String("✓")) return QColor(0x1e, 0x8a, 0x44);
    return QColor(0x26, 0x28, 0x2d);
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

QIcon TrayStatusItem::currentIcon() const {
    if (title_.trimmed().isEmpty()) return baseIcon_;
    QIcon icon;
    for (const int size : iconSizes) icon.addPixmap(composedIcon(baseIcon_, title_, size));
    return icon;
}

void TrayStatusItem::setTitle(const QString& title) {
    if (title == title_) return;
    title_ = title;
    const QIcon icon = currentIcon();
    if (tray_) tray_->setIcon(icon);
    if (item_) item_->setIcon(icon);
}

void TrayStatusItem::setToolTip(const QString& toolTip) {
    if (tray_) tray_->setToolTip(toolTip);
    // The first line names the program; trays show the rest beneath it.
    if (item_)
        item_->setToolTip(toolTip.section(QLatin1Char('\n'), 0, 0),
                          toolTip.section(QLatin1Char('\n'), 1));
}

void TrayStatusItem::setMenu(const std::vector<TrayMenuEntry>& entries) {
    menu_->setEntries(entries);
    if (item_) item_->setMenu(entries);
}

QRect TrayStatusItem::iconGeometry() const {
    return tray_ ? tray_->geometry() : QRect();
}

QString TrayStatusItem::takeActivationToken() {
    return item_ ? item_->takeActivationToken() : QString();
}

}  // namespace velt::ui
