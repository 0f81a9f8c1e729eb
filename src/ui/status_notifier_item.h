// StatusNotifierItem: the program's item in trays that speak the StatusNotifierItem D-Bus
// protocol (KDE Plasma, XFCE's panel plugin, GNOME with the AppIndicator extension, on X11 and
// on Wayland). It owns a name on the session bus, publishes the item and its menu there and
// announces itself to the desktop's org.kde.StatusNotifierWatcher.
//
// Unlike the toolkit's own tray item it names the program ("VELT | Compressor"), exports the
// context menu, and passes on where the tray says it was clicked and the activation token a
// tray may hand over before a click.
//
// Main thread only.
#pragma once

#include "ui/dbus_menu.h"
#include "ui/dbus_tray_types.h"

#include <QDBusVirtualObject>
#include <QPoint>
#include <functional>
#include <memory>

namespace velt::ui {

class StatusNotifierItem : public QDBusVirtualObject {
  public:
    static const QString watcherService;  // "org.kde.StatusNotifierWatcher"
    static const QString objectPath;      // "/StatusNotifierItem"

    struct Handlers {
        // A click on the item; `point` is where the tray says it was, or null when it does
        // not say (0, 0).
        std::function<void(const QPoint& point)> activate;
        // A tray that does not draw the menu itself asks the program to show it at `point`.
        std::function<void(const QPoint& point)> contextMenu;
        std::function<void(TrayCommand)> command;
    };

    explicit StatusNotifierItem(Handlers handlers);
    ~StatusNotifierItem() override;

    // Takes the bus name, publishes the item and the menu and registers with the watcher.
    // False when the session bus refuses.
    bool publish();
    const QString& serviceName() const { return serviceName_; }

    void setIcon(const QIcon& icon);
    void setToolTip(const QString& title, const QString& description);
    void setMenu(const std::vector<TrayMenuEntry>& entries);
    // The token a tray handed over with its last click, once; empty when there is none.
    QString takeActivationToken();

    QString introspect(const QString& path) const override;
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override;

  private:
    QVariant property(const QString& name) const;
    void emitSignal(const QString& name, const QVariantList& arguments = {});

    Handlers handlers_;
    std::unique_ptr<DBusMenuExporter> menu_;
    QString serviceName_;
    bool published_ = false;
    DBusIconPixmaps icon_;
    DBusToolTip toolTip_;
    QString activationToken_;
};

}  // namespace velt::ui
