// A stand-in for the desktop's tray host (KDE, XFCE, GNOME with AppIndicator): owns
// org.kde.StatusNotifierWatcher on the session bus, accepts the program's tray item, then clicks
// it through its Activate method as a panel would. Prints "registered SERVICE" and
// "activated SERVICE" as it goes. It answers what a Qt tray item asks of a watcher: the
// description of its interface, whether a host is registered, and the item's registration.
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <QTextStream>
#include <QTimer>
#include <cstdio>

namespace {

class Watcher : public QDBusVirtualObject {
  public:
    QString introspect(const QString&) const override {
        return QStringLiteral(
            "<interface name=\"org.kde.StatusNotifierWatcher\">"
            "<method name=\"RegisterStatusNotifierItem\"><arg type=\"s\" "
            "direction=\"in\"/></method>"
            "<method name=\"RegisterStatusNotifierHost\"><arg type=\"s\" "
            "direction=\"in\"/></method>"
            "<property name=\"IsStatusNotifierHostRegistered\" type=\"b\" access=\"read\"/>"
            "</interface>");
    }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
        if (message.interface() == QLatin1String("org.freedesktop.DBus.Properties") &&
            message.member() == QLatin1String("Get") &&
            message.arguments().value(1).toString() ==
                QLatin1String("IsStatusNotifierHostRegistered")) {
            connection.send(message.createReply(QVariant::fromValue(QDBusVariant(true))));
            return true;
        }
        if (message.interface() != QLatin1String("org.kde.StatusNotifierWatcher")) return false;
        connection.send(message.createReply());
        if (message.member() != QLatin1String("RegisterStatusNotifierItem")) return true;
        const QString service = message.arguments().value(0).toString();
        print(QStringLiteral("registered ") + service);
        QTimer::singleShot(800, [service] { activate(service); });
        return true;
    }

  private:
    static void activate(const QString& service) {
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
