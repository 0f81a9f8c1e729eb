// DBusMenuExporter: the tray menu published over D-Bus (com.canonical.dbusmenu), the way
// StatusNotifierItem trays read an item's menu and draw it themselves. A flat menu under a root
// item 0; a new layout revision whenever an entry's label or state changes; a click on an entry
// reaches `onClicked` with the entry's id on the next turn of the event loop.
//
// Main thread only.
#pragma once

#include "ui/tray_menu.h"

#include <QDBusVirtualObject>
#include <functional>
#include <vector>

namespace velt::ui {

struct DBusMenuLayoutItem;

class DBusMenuExporter : public QDBusVirtualObject {
  public:
    static const QString interfaceName;  // "com.canonical.dbusmenu"

    DBusMenuExporter(QString path, std::function<void(int id)> onClicked);

    // Announces a new layout on `connection` when the entries differ from the ones shown.
    void setEntries(std::vector<TrayMenuEntry> entries, const QDBusConnection& connection);
    const QString& path() const { return path_; }

    QString introspect(const QString& path) const override;
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override;

  private:
    DBusMenuLayoutItem layout() const;
    QVariantMap properties(int id) const;
    QVariant property(const QString& name) const;
    void clicked(int id);

    QString path_;
    std::function<void(int)> onClicked_;
    std::vector<TrayMenuEntry> entries_;
    uint revision_ = 1;
};

}  // namespace velt::ui
