// TrayStatusItem: the program's icon in the system tray, through whichever protocol the desktop
// speaks — StatusNotifierItem over D-Bus, or XEmbed through the toolkit's tray icon. Trays show
// icons, not text, so the status title (progress or a notice) is drawn into the icon as a badge
// — a figure for progress, "!" or "✓" for notices, readable from 16 to 48 pixels; the tooltip
// says what the program is doing. Both kinds carry the same context menu.
//
// Main thread only.
#pragma once

#include "ui/tray_menu.h"

#include <QIcon>
#include <QObject>
#include <QPointer>
#include <QString>
#include <memory>

class QSystemTrayIcon;

namespace velt::ui {

class StatusNotifierItem;

class TrayStatusItem : public QObject {
  public:
    enum class Kind { xembed, statusNotifier };

    struct Handlers {
        // A click on the icon: the icon's rectangle on the screen, a point where the tray says
        // it was clicked (1 × 1), or an empty rectangle when the tray tells neither.
        std::function<void(const QRect& anchor)> activate;
        std::function<void(TrayCommand)> command;
    };

    TrayStatusItem(Kind kind, Handlers handlers);
    ~TrayStatusItem() override;

    Kind kind() const { return kind_; }
    // False when the item could not be put into the tray (the bus refused the name).
    bool isPublished() const { return published_; }
    void setTitle(const QString& title);
    const QString& title() const { return title_; }
    void setToolTip(const QString& toolTip);
    void setMenu(const std::vector<TrayMenuEntry>& entries);
    TrayMenu* menu() const { return menu_.get(); }
    // Where the icon is on the screen, when the tray tells (XEmbed does).
    QRect iconGeometry() const;
    // The activation token a StatusNotifierItem tray handed over with its last click, once.
    QString takeActivationToken();

    // "status-icon.svg" from the resource folder; the theme's "go-down" icon when it is missing.
    static QIcon statusBarIcon();
    // The short text drawn into the badge for a title: the figure of " 42%", the sign of a
    // notice; empty for no title.
    static QString badgeText(const QString& title);
    // The badge's fill for a badge text: red for a problem, green for done, graphite for
    // progress — each set off from the blue icon.
    static QColor badgeColor(const QString& badge);
    // The icon at `size` pixels with the badge for `title` drawn into it.
    static QPixmap composedIcon(const QIcon& base, const QString& title, int size);

  private:
    QIcon currentIcon() const;

    Kind kind_;
    Handlers handlers_;
    QIcon baseIcon_;
    QString title_;
    bool published_ = false;
    std::unique_ptr<TrayMenu> menu_;
    std::unique_ptr<QSystemTrayIcon> tray_;
    std::unique_ptr<StatusNotifierItem> item_;
};

}  // namespace velt::ui
