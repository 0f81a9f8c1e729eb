// A stand-in for the desktop's tray host (KDE, XFCE, GNOME with AppIndicator): owns
// org.kde.StatusNotifierWatcher on the session bus, accepts the program's tray item, then clicks
// it through its Activate method as a panel would. Prints "registered SERVICE" and
// "activated SERVICE" as it goes.
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <QTextStream>
#include <QTimer>
#include <cstdio>

namespace {

const QString watcherInterface = QStringLiteral("org.kde.StatusNotifierWatcher");
const QString propertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");

class Watcher : public QDBusVirtualObject {
  public:
    QString introspect(const QString&) const override {
        return QStringLiteral(
            "<interface name=\"org.kde.StatusNotifierWatcher\">"
            "<method name=\"RegisterStatusNotifierItem\"><arg type=\"s\" "
            "direction=\"in\"/></method>"
            "<method name=\"RegisterStatusNotifierHost\"><arg type=\"s\" "
            "direction=\"in\"/></method>"
            "<property name=\"RegisteredStatusNotifierItems\" type=\"as\" access=\"read\"/>"
            "<property name=\"IsStatusNotifierHostRegistered\" type=\"b\" access=\"read\"/>"
            "<property name=\"ProtocolVersion\" type=\"i\" access=\"read\"/>"
            "</interface>");
    }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
        if (message.interface() == propertiesInterface) {
            const QString name = message.arguments().value(1).toString();
            if (message.member() == QLatin1String("Get")) {
                connection.send(
                    message.createReply(QVariant::fromValue(QDBusVariant(property(name)))));
                return true;
            }
            if (message.member() == QLatin1String("GetAll")) {
                QVariantMap all;
                for (const char* key : {"RegisteredStatusNotifierItems",
                                        "IsStatusNotifierHostRegistered", "ProtocolVersion"})
                    all.insert(QString::fromUtf8(key), property(QString::fromUtf8(key)));
                connection.send(message.createReply(all));
                return true;
            }
            return false;
        }
        if (message.interface() != watcherInterface) return false;
        connection.send(message.createReply());
        if (message.member() != QLatin1String("RegisterStatusNotifierItem")) return true;
        QString service = message.arguments().value(0).toString();
        if (service.startsWith(QLatin1Char('/'))) service = message.service();
        items_ << service;
        print(QStringLiteral("registered ") + service);
        QTimer::singleShot(800, [this, service] { activate(service); });
        return true;
    }

  private:
    QVariant property(const QString& name) const {
        if (name == QLatin1String("IsStatusNotifierHostRegistered")) return true;
        if (name == QLatin1String("ProtocolVersion")) return 0;
        return items_;
    }

    void activate(const QString& service) {
        QDBusMessage call = QDBusMessage::createMethodCall(
            service, QStringLiteral("/StatusNotifierItem"),
            QStringLiteral("org.kde.StatusNotifierItem"), QStringLiteral("Activate"));
        call << 300 << 200;
        const QDBusMessage reply = QDBusConnection::sessionBus().call(call, QDBus::Block, 5000);
        print((reply.type() == QDBusMessage::ErrorMessage ? QStringLiteral("activation failed ")
                                                          : QStringLiteral("activated ")) +
              service);
    }

    static void print(const QString& line) { QTextStream(stdout) << line << Qt::endl; }

    QStringList items_;
};

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    Watcher watcher;
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.registerService(QStringLiteral("org.kde.StatusNotifierWatcher")) ||
        !bus.registerVirtualObject(QStringLiteral("/StatusNotifierWatcher"), &watcher)) {
        std::fprintf(stderr, "could not own the watcher name\n");
        return 1;
    }
    std::printf("watching\n");
    std::fflush(stdout);
    return QCoreApplication::exec();
}
