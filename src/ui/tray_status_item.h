// TrayStatusItem: the program's icon in the system tray. Trays show icons, not text, so the
// status title (progress or a notice) is drawn into the icon as a badge — a figure for progress,
// "!" or "✓" for notices, readable from 16 to 48 pixels — and is also the tooltip.
//
// Main thread only.
#pragma once

#include <QIcon>
#include <QObject>
#include <QString>
#include <QSystemTrayIcon>
#include <functional>

namespace velt::ui {

class TrayStatusItem : public QObject {
  public:
    // `onActivate` gets the icon's rectangle on the screen (empty when the tray tells none).
    explicit TrayStatusItem(std::function<void(const QRect&)> onActivate);

    void setTitle(const QString& title);
    const QString& title() const { return title_; }
    QSystemTrayIcon& trayIcon() { return tray_; }

    // "status-icon.svg" from the resource folder; the theme's "go-down" icon when it is missing.
    static QIcon statusBarIcon();
    // The short text drawn into the badge for a title: the figure of " 42%", the sign of a
    // notice; empty for no title.
    static QString badgeText(const QString& title);
    // The icon at `size` pixels with the badge for `title` drawn into it.
    static QPixmap composedIcon(const QIcon& base, const QString& title, int size);

  private:
    QIcon baseIcon_;
    QSystemTrayIcon tray_;
    QString title_;
};

}  // namespace velt::ui
