#include "ui/status_notifier_item.h"

#include "model/constants.h"
#include "model/native_log.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QTimer>

namespace velt::ui {
namespace {

const QString itemInterface = QStringLiteral("org.kde.StatusNotifierItem");
const QString propertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");
const QString menuPath = QStringLiteral("/MenuBar");

QDBusConnection bus() {
    return QDBusConnection::sessionBus();
}

}  // namespace

const QString StatusNotifierItem::watcherService = QStringLiteral("org.kde.StatusNotifierWatcher");
const QString StatusNotifierItem::objectPath = QStringLiteral("/StatusNotifierItem");

StatusNotifierItem::StatusNotifierItem(Handlers handlers)
    : handlers_(std::move(handlers)),
      menu_(std::make_unique<DBusMenuExporter>(menuPath, [this](int id) {
          if (handlers_.command) handlers_.command(static_cast<TrayCommand>(id));
      })) {
    static int instances = 0;
    serviceName_ = QStringLiteral("org.kde.StatusNotifierItem-%1-%2")
                       .arg(QCoreApplication::applicationPid())
                       .arg(++instances);
    toolTip_.title = appName;
}

StatusNotifierItem::~StatusNotifierItem() {
    if (!published_) return;
    QDBusConnection connection = bus();
    connection.unregisterObject(menuPath);
    connection.unregisterObject(objectPath);
    connection.unregisterService(serviceName_);
}

bool StatusNotifierItem::publish() {
    QDBusConnection connection = bus();
    if (!connection.isConnected() || !connection.registerService(serviceName_)) return false;
    published_ = true;
    if (!connection.registerVirtualObject(objectPath, this) ||
        !connection.registerVirtualObject(menuPath, menu_.get()))
        return false;
    QDBusMessage call = QDBusMessage::createMethodCall(
        watcherService, QStringLiteral("/StatusNotifierWatcher"), watcherService,
        QStringLiteral("RegisterStatusNotifierItem"));
    call << serviceName_;
    connection.asyncCall(call);
    NativeLog::write(QStringLiteral("Tray item published as ") + serviceName_);
    return true;
}

void StatusNotifierItem::setIcon(const QIcon& icon) {
    icon_ = dbusIconPixmaps(icon);
    toolTip_.icon = icon_;
    emitSignal(QStringLiteral("NewIcon"));
}

void StatusNotifierItem::setToolTip(const QString& title, const QString& description) {
    toolTip_.title = title;
    toolTip_.description = description;
    emitSignal(QStringLiteral("NewToolTip"));
}

void StatusNotifierItem::setMenu(const std::vector<TrayMenuEntry>& entries) {
    menu_->setEntries(entries, bus());
}

QString StatusNotifierItem::takeActivationToken() {
    return std::exchange(activationToken_, QString());
}

void StatusNotifierItem::emitSignal(const QString& name, const QVariantList& arguments) {
    if (!published_) return;
    QDBusMessage signal = QDBusMessage::createSignal(objectPath, itemInterface, name);
    signal.setArguments(arguments);
    bus().send(signal);
}

QVariant StatusNotifierItem::property(const QString& name) const {
    static const QStringList emptyTexts = {
        QStringLiteral("IconName"), QStringLiteral("IconThemePath"),
        QStringLiteral("OverlayIconName"), QStringLiteral("AttentionIconName"),
        QStringLiteral("AttentionMovieName")};
    if (name == QLatin1String("Category")) return QStringLiteral("ApplicationStatus");
    if (name == QLatin1String("Id")) return QStringLiteral("velt-compressor");
    if (name == QLatin1String("Title")) return appName;
    if (name == QLatin1String("Status")) return QStringLiteral("Active");
    if (name == QLatin1String("WindowId")) return 0;
    if (name == QLatin1String("ItemIsMenu")) return false;
    if (name == QLatin1String("Menu")) return QVariant::fromValue(QDBusObjectPath(menuPath));
    if (name == QLatin1String("IconPixmap")) return QVariant::fromValue(icon_);
    if (name == QLatin1String("OverlayIconPixmap") || name == QLatin1String("AttentionIconPixmap"))
        return QVariant::fromValue(DBusIconPixmaps());
    if (name == QLatin1String("ToolTip")) return QVariant::fromValue(toolTip_);
    if (emptyTexts.contains(name)) return QString();
    return {};
}

QString StatusNotifierItem::introspect(const QString&) const {
    return QStringLiteral(
        "<interface name=\"org.kde.StatusNotifierItem\">"
        "<property name=\"Category\" type=\"s\" access=\"read\"/>"
        "<property name=\"Id\" type=\"s\" access=\"read\"/>"
        "<property name=\"Title\" type=\"s\" access=\"read\"/>"
        "<property name=\"Status\" type=\"s\" access=\"read\"/>"
        "<property name=\"WindowId\" type=\"i\" access=\"read\"/>"
        "<property name=\"IconName\" type=\"s\" access=\"read\"/>"
        "<property name=\"IconThemePath\" type=\"s\" access=\"read\"/>"
        "<property name=\"IconPixmap\" type=\"a(iiay)\" access=\"read\"/>"
        "<property name=\"OverlayIconName\" type=\"s\" access=\"read\"/>"
        "<property name=\"OverlayIconPixmap\" type=\"a(iiay)\" access=\"read\"/>"
        "<property name=\"AttentionIconName\" type=\"s\" access=\"read\"/>"
        "<property name=\"AttentionIconPixmap\" type=\"a(iiay)\" access=\"read\"/>"
        "<property name=\"AttentionMovieName\" type=\"s\" access=\"read\"/>"
        "<property name=\"ToolTip\" type=\"(sa(iiay)ss)\" access=\"read\"/>"
        "<property name=\"ItemIsMenu\" type=\"b\" access=\"read\"/>"
        "<property name=\"Menu\" type=\"o\" access=\"read\"/>"
        "<method name=\"ContextMenu\"><arg name=\"x\" type=\"i\" direction=\"in\"/>"
        "<arg name=\"y\" type=\"i\" direction=\"in\"/></method>"
        "<method name=\"Activate\"><arg name=\"x\" type=\"i\" direction=\"in\"/>"
        "<arg name=\"y\" type=\"i\" direction=\"in\"/></method>"
        "<method name=\"SecondaryActivate\"><arg name=\"x\" type=\"i\" direction=\"in\"/>"
        "<arg name=\"y\" type=\"i\" direction=\"in\"/></method>"
        "<method name=\"Scroll\"><arg name=\"delta\" type=\"i\" direction=\"in\"/>"
        "<arg name=\"orientation\" type=\"s\" direction=\"in\"/></method>"
        "<method name=\"ProvideXdgActivationToken\"><arg name=\"token\" type=\"s\" "
        "direction=\"in\"/></method>"
        "<signal name=\"NewTitle\"/><signal name=\"NewIcon\"/><signal name=\"NewAttentionIcon\"/>"
        "<signal name=\"NewOverlayIcon\"/><signal name=\"NewToolTip\"/>"
        "<signal name=\"NewStatus\"><arg name=\"status\" type=\"s\"/></signal>"
        "</interface>");
}

bool StatusNotifierItem::handleMessage(const QDBusMessage& message,
                                       const QDBusConnection& connection) {
    const QString member = message.member();
    const QVariantList arguments = message.arguments();
    QVariantList reply;
    if (message.interface() == propertiesInterface) {
        if (member == QLatin1String("Get")) {
            const QVariant value = property(arguments.value(1).toString());
            if (!value.isValid()) return false;
            reply << QVariant::fromValue(QDBusVariant(value));
        } else if (member == QLatin1String("GetAll")) {
            QVariantMap all;
            for (const char* name :
                 {"Category", "Id", "Title", "Status", "WindowId", "IconName", "IconThemePath",
                  "IconPixmap", "OverlayIconName", "OverlayIconPixmap", "AttentionIconName",
                  "AttentionIconPixmap", "AttentionMovieName", "ToolTip", "ItemIsMenu", "Menu"})
                all.insert(QLatin1String(name), property(QLatin1String(name)));
            reply << all;
        } else {
            return false;
        }
    } else if (message.interface() != itemInterface) {
        return false;
    } else if (member == QLatin1String("ProvideXdgActivationToken")) {
        activationToken_ = arguments.value(0).toString();
    } else if (member == QLatin1String("Activate") || member == QLatin1String("ContextMenu")) {
        const QPoint point(arguments.value(0).toInt(), arguments.value(1).toInt());
        const auto& handler =
            member == QLatin1String("Activate") ? handlers_.activate : handlers_.contextMenu;
        // After the reply: the panel may grab the pointer, which a waiting tray would not like.
        QTimer::singleShot(0, this, [handler, point] {
            if (handler) handler(point);
        });
    } else if (member != QLatin1String("SecondaryActivate") && member != QLatin1String("Scroll")) {
        return false;
    }
    QDBusConnection(connection).send(message.createReply(reply));
    return true;
}

}  // namespace velt::ui
