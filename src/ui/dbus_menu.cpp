#include "ui/dbus_menu.h"

#include "ui/dbus_tray_types.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusVariant>
#include <QTimer>

namespace velt::ui {
namespace {

const QString propertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");

// Underscores mark mnemonics in this protocol; a label's own ones are doubled.
QString escapedLabel(const QString& label) {
    QString escaped = label;
    return escaped.replace(QLatin1Char('_'), QStringLiteral("__"));
}

}  // namespace

const QString DBusMenuExporter::interfaceName = QStringLiteral("com.canonical.dbusmenu");

DBusMenuExporter::DBusMenuExporter(QString path, std::function<void(int)> onClicked)
    : path_(std::move(path)), onClicked_(std::move(onClicked)) {
    registerDBusTrayTypes();
}

void DBusMenuExporter::setEntries(std::vector<TrayMenuEntry> entries,
                                  const QDBusConnection& connection) {
    if (entries == entries_) return;
    entries_ = std::move(entries);
    ++revision_;
    QDBusMessage signal =
        QDBusMessage::createSignal(path_, interfaceName, QStringLiteral("LayoutUpdated"));
    signal << revision_ << 0;
    QDBusConnection(connection).send(signal);
}

QVariantMap DBusMenuExporter::properties(int id) const {
    if (id == 0) return {{QStringLiteral("children-display"), QStringLiteral("submenu")}};
    for (size_t i = 0; i < entries_.size(); ++i) {
        const TrayMenuEntry& entry = entries_[i];
        // Separators carry no command; their ids follow the commands'.
        const int entryId = entry.isSeparator() ? 1000 + int(i) : entry.id;
        if (entryId != id) continue;
        if (entry.isSeparator()) return {{QStringLiteral("type"), QStringLiteral("separator")}};
        return {{QStringLiteral("label"), escapedLabel(entry.label)},
                {QStringLiteral("enabled"), entry.enabled},
                {QStringLiteral("visible"), true}};
    }
    return {};
}

DBusMenuLayoutItem DBusMenuExporter::layout() const {
    DBusMenuLayoutItem root{0, properties(0), {}};
    for (size_t i = 0; i < entries_.size(); ++i) {
        const int id = entries_[i].isSeparator() ? 1000 + int(i) : entries_[i].id;
        root.children << DBusMenuLayoutItem{id, properties(id), {}};
    }
    return root;
}

QVariant DBusMenuExporter::property(const QString& name) const {
    if (name == QLatin1String("Version")) return QVariant::fromValue(uint(3));
    if (name == QLatin1String("TextDirection")) return QStringLiteral("ltr");
    if (name == QLatin1String("Status")) return QStringLiteral("normal");
    if (name == QLatin1String("IconThemePath")) return QStringList();
    return {};
}

void DBusMenuExporter::clicked(int id) {
    // The reply goes out first; what the entry does may close or rebuild things.
    QTimer::singleShot(0, this, [this, id] { onClicked_(id); });
}

QString DBusMenuExporter::introspect(const QString&) const {
    return QStringLiteral(
        "<interface name=\"com.canonical.dbusmenu\">"
        "<property name=\"Version\" type=\"u\" access=\"read\"/>"
        "<property name=\"TextDirection\" type=\"s\" access=\"read\"/>"
        "<property name=\"Status\" type=\"s\" access=\"read\"/>"
        "<property name=\"IconThemePath\" type=\"as\" access=\"read\"/>"
        "<method name=\"GetLayout\"><arg type=\"i\" direction=\"in\"/>"
        "<arg type=\"i\" direction=\"in\"/><arg type=\"as\" direction=\"in\"/>"
        "<arg type=\"u\" direction=\"out\"/><arg type=\"(ia{sv}av)\" direction=\"out\"/></method>"
        "<method name=\"GetGroupProperties\"><arg type=\"ai\" direction=\"in\"/>"
        "<arg type=\"as\" direction=\"in\"/><arg type=\"a(ia{sv})\" direction=\"out\"/></method>"
        "<method name=\"GetProperty\"><arg type=\"i\" direction=\"in\"/>"
        "<arg type=\"s\" direction=\"in\"/><arg type=\"v\" direction=\"out\"/></method>"
        "<method name=\"Event\"><arg type=\"i\" direction=\"in\"/><arg type=\"s\" "
        "direction=\"in\"/><arg type=\"v\" direction=\"in\"/><arg type=\"u\" "
        "direction=\"in\"/></method>"
        "<method name=\"EventGroup\"><arg type=\"a(isvu)\" direction=\"in\"/>"
        "<arg type=\"ai\" direction=\"out\"/></method>"
        "<method name=\"AboutToShow\"><arg type=\"i\" direction=\"in\"/>"
        "<arg type=\"b\" direction=\"out\"/></method>"
        "<method name=\"AboutToShowGroup\"><arg type=\"ai\" direction=\"in\"/>"
        "<arg type=\"ai\" direction=\"out\"/><arg type=\"ai\" direction=\"out\"/></method>"
        "<signal name=\"LayoutUpdated\"><arg type=\"u\"/><arg type=\"i\"/></signal>"
        "<signal name=\"ItemsPropertiesUpdated\"><arg type=\"a(ia{sv})\"/>"
        "<arg type=\"a(ias)\"/></signal>"
        "</interface>");
}

bool DBusMenuExporter::handleMessage(const QDBusMessage& message,
                                     const QDBusConnection& connection) {
    const QString member = message.member();
    const QVariantList arguments = message.arguments();
    QVariantList reply;
    if (message.interface() == propertiesInterface) {
        if (member == QLatin1String("GetAll")) {
            QVariantMap all;
            for (const char* name : {"Version", "TextDirection", "Status", "IconThemePath"})
                all.insert(QLatin1String(name), property(QLatin1String(name)));
            reply << all;
        } else if (member == QLatin1String("Get")) {
            reply << QVariant::fromValue(QDBusVariant(property(arguments.value(1).toString())));
        } else {
            return false;
        }
    } else if (message.interface() != interfaceName) {
        return false;
    } else if (member == QLatin1String("GetLayout")) {
        reply << QVariant::fromValue(revision_) << QVariant::fromValue(layout());
    } else if (member == QLatin1String("GetGroupProperties")) {
        DBusMenuItemPropertiesList items;
        for (const int id : qdbus_cast<QList<int>>(arguments.value(0)))
            items << DBusMenuItemProperties{id, properties(id)};
        reply << QVariant::fromValue(items);
    } else if (member == QLatin1String("GetProperty")) {
        reply << QVariant::fromValue(QDBusVariant(
            properties(arguments.value(0).toInt()).value(arguments.value(1).toString())));
    } else if (member == QLatin1String("Event")) {
        if (arguments.value(1).toString() == QLatin1String("clicked"))
            clicked(arguments.value(0).toInt());
    } else if (member == QLatin1String("EventGroup")) {
        const QDBusArgument events = arguments.value(0).value<QDBusArgument>();
        events.beginArray();
        while (!events.atEnd()) {
            int id = 0;
            QString eventId;
            QDBusVariant data;
            uint timestamp = 0;
            events.beginStructure();
            events >> id >> eventId >> data >> timestamp;
            events.endStructure();
            if (eventId == QLatin1String("clicked")) clicked(id);
        }
        events.endArray();
        reply << QVariant::fromValue(QList<int>());
    } else if (member == QLatin1String("AboutToShow")) {
        reply << false;
    } else if (member == QLatin1String("AboutToShowGroup")) {
        reply << QVariant::fromValue(QList<int>()) << QVariant::fromValue(QList<int>());
    } else {
        return false;
    }
    QDBusConnection(connection).send(message.createReply(reply));
    return true;
}

}  // namespace velt::ui
