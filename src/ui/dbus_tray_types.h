// The D-Bus structures of the StatusNotifierItem and com.canonical.dbusmenu protocols, with
// their marshalling: icon pixmaps (iiay), the tool tip (sa(iiay)ss), menu layout items
// (ia{sv}av) and item properties (ia{sv}).
#pragma once

#include <QDBusArgument>
#include <QIcon>
#include <QList>
#include <QMetaType>
#include <QVariantMap>

namespace velt::ui {

// One size of an icon: ARGB32 pixels in network byte order.
struct DBusIconPixmap {
    int width = 0;
    int height = 0;
    QByteArray argb;
};
using DBusIconPixmaps = QList<DBusIconPixmap>;

struct DBusToolTip {
    QString iconName;
    DBusIconPixmaps icon;
    QString title;
    QString description;
};

struct DBusMenuLayoutItem {
    int id = 0;
    QVariantMap properties;
    QList<DBusMenuLayoutItem> children;
};

struct DBusMenuItemProperties {
    int id = 0;
    QVariantMap properties;
};
using DBusMenuItemPropertiesList = QList<DBusMenuItemProperties>;

// Every size of `icon` the tray may ask for.
DBusIconPixmaps dbusIconPixmaps(const QIcon& icon);

// Makes the structures known to the D-Bus type system; safe to call more than once.
void registerDBusTrayTypes();

QDBusArgument& operator<<(QDBusArgument& argument, const DBusIconPixmap& pixmap);
const QDBusArgument& operator>>(const QDBusArgument& argument, DBusIconPixmap& pixmap);
QDBusArgument& operator<<(QDBusArgument& argument, const DBusToolTip& toolTip);
const QDBusArgument& operator>>(const QDBusArgument& argument, DBusToolTip& toolTip);
QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuLayoutItem& item);
const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuLayoutItem& item);
QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuItemProperties& item);
const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuItemProperties& item);

}  // namespace velt::ui

Q_DECLARE_METATYPE(velt::ui::DBusIconPixmap)
Q_DECLARE_METATYPE(velt::ui::DBusToolTip)
Q_DECLARE_METATYPE(velt::ui::DBusMenuLayoutItem)
Q_DECLARE_METATYPE(velt::ui::DBusMenuItemProperties)
