// A stand-in for the desktop's tray host (KDE, XFCE, GNOME with AppIndicator): owns
// org.kde.StatusNotifierWatcher on the session bus and accepts the program's tray item, then
// does what a tray does with it when told on standard input, one command a line:
//   properties        prints "title TEXT", "id TEXT" and "menu PATH"
//   layout            prints "menu LABEL|LABEL|…" (a disabled entry in brackets, "-" a
//                     separator), as the tray would draw the item's menu
//   click LABEL       clicks that menu entry, prints "clicked LABEL"
//   activate X Y      clicks the item at X, Y, prints "activated"
// It prints "watching" when it owns the name and "registered SERVICE" for the item.
#include <unistd.h>
#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <QSocketNotifier>
#include <QTextStream>
#include <cstdio>
#include <map>

namespace {

void print(const QString& line) {
    QTextStream(stdout) << line << Qt::endl;
}

class Watcher : public QDBusVirtualObject {
  public:
    QString item;

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
        item = message.arguments().value(0).toString();
        print(QStringLiteral("registered ") + item);
        return true;
    }
};

QDBusMessage call(const QString& service, const QString& path, const QString& interface,
                  const QString& method, const QVariantList& arguments = {}) {
    QDBusMessage message = QDBusMessage::createMethodCall(service, path, interface, method);
    message.setArguments(arguments);
    return QDBusConnection::sessionBus().call(message, QDBus::Block, 5000);
}

QVariant property(const QString& service, const QString& name) {
    const QDBusMessage reply =
        call(service, QStringLiteral("/StatusNotifierItem"),
             QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"),
             {QStringLiteral("org.kde.StatusNotifierItem"), name});
    return reply.arguments().value(0).value<QDBusVariant>().variant();
}

// The children of a (ia{sv}av) layout item, with their ids.
std::vector<std::pair<int, QVariantMap>> menuEntries(const QDBusArgument& layout) {
    std::vector<std::pair<int, QVariantMap>> entries;
    int id = 0;
    QVariantMap properties;
    layout.beginStructure();
    layout >> id >> properties;
    layout.beginArray();
    while (!layout.atEnd()) {
        QDBusVariant child;
        layout >> child;
        const QDBusArgument childLayout = child.variant().value<QDBusArgument>();
        int childId = 0;
        QVariantMap childProperties;
        childLayout.beginStructure();
        childLayout >> childId >> childProperties;
        childLayout.endStructure();
        entries.emplace_back(childId, childProperties);
    }
    layout.endArray();
    layout.endStructure();
    return entries;
}

class Tray {
  public:
    explicit Tray(Watcher& watcher) : watcher_(watcher) {}

    void run(const QString& line) {
        const QStringList words = line.split(QLatin1Char(' '), Qt::SkipEmptyParts);
        const QString command = words.value(0);
        const QString service = watcher_.item;
        if (command == QLatin1String("properties")) {
            print(QStringLiteral("title ") + property(service, QStringLiteral("Title")).toString());
            print(QStringLiteral("id ") + property(service, QStringLiteral("Id")).toString());
            print(QStringLiteral("menu ") +
                  property(service, QStringLiteral("Menu")).value<QDBusObjectPath>().path());
        } else if (command == QLatin1String("layout")) {
            labels_.clear();
            const QDBusMessage reply =
                menuCall(QStringLiteral("GetLayout"), {0, -1, QStringList()});
            QStringList shown;
            for (const auto& [id, properties] :
                 menuEntries(reply.arguments().value(1).value<QDBusArgument>())) {
                if (properties.value(QStringLiteral("type")).toString() ==
                    QLatin1String("separator")) {
                    shown << QStringLiteral("-");
                    continue;
                }
                const QString label = properties.value(QStringLiteral("label")).toString();
                labels_[label] = id;
                shown << (properties.value(QStringLiteral("enabled"), true).toBool()
                              ? label
                              : QLatin1Char('[') + label + QLatin1Char(']'));
            }
            print(QStringLiteral("menu ") + shown.join(QLatin1Char('|')));
        } else if (command == QLatin1String("click")) {
            const QString label = line.section(QLatin1Char(' '), 1);
            menuCall(QStringLiteral("Event"), {labels_[label], QStringLiteral("clicked"),
                                               QVariant::fromValue(QDBusVariant(0)), 0u});
            print(QStringLiteral("clicked ") + label);
        } else if (command == QLatin1String("activate")) {
            const QDBusMessage reply =
                call(service, QStringLiteral("/StatusNotifierItem"),
                     QStringLiteral("org.kde.StatusNotifierItem"), QStringLiteral("Activate"),
                     {words.value(1).toInt(), words.value(2).toInt()});
            print(reply.type() == QDBusMessage::ErrorMessage ? QStringLiteral("activation failed")
                                                             : QStringLiteral("activated"));
        }
    }

  private:
    QDBusMessage menuCall(const QString& method, const QVariantList& arguments) {
        return call(watcher_.item, QStringLiteral("/MenuBar"),
                    QStringLiteral("com.canonical.dbusmenu"), method, arguments);
    }

    Watcher& watcher_;
    std::map<QString, int> labels_;
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
    Tray tray(watcher);
    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QByteArray pending;
    QObject::connect(&input, &QSocketNotifier::activated, [&] {
        char buffer[512];
        const ssize_t count = read(STDIN_FILENO, buffer, sizeof buffer);
        if (count <= 0) {
            QCoreApplication::quit();
            return;
        }
        pending.append(buffer, count);
        for (qsizetype end; (end = pending.indexOf('\n')) >= 0; pending.remove(0, end + 1))
            tray.run(QString::fromUtf8(pending.left(end)));
    });
    print(QStringLiteral("watching"));
    return QCoreApplication::exec();
}
