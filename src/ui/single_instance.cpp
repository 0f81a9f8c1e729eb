#include "ui/single_instance.h"

#include "model/native_log.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusVirtualObject>

namespace velt::ui {
namespace {

const QString objectPath = QStringLiteral("/");
const QString interfaceName = QStringLiteral("com.velt.Compressor");
const QString showPanelMethod = QStringLiteral("ShowPanel");  // what earlier versions send
const QString openMethod = QStringLiteral("Open");

using Part = CommandLineRequest::DesktopPart;

QString partName(Part part) {
    switch (part) {
        case Part::settings:
            return QStringLiteral("settings");
        case Part::history:
            return QStringLiteral("history");
        case Part::panel:
            break;
    }
    return QStringLiteral("panel");
}

Part partFromName(const QString& name) {
    if (name == QLatin1String("settings")) return Part::settings;
    if (name == QLatin1String("history")) return Part::history;
    return Part::panel;
}

}  // namespace

const QString SingleInstance::serviceName = QStringLiteral("com.velt.Compressor");

// Answers Open(part, folder, token) and ShowPanel() without a generated adaptor.
class SingleInstance::Endpoint : public QDBusVirtualObject {
  public:
    explicit Endpoint(std::function<void(const Request&)> onRequest)
        : onRequest_(std::move(onRequest)) {}

    QString introspect(const QString&) const override {
        return QStringLiteral(
            "<interface name=\"com.velt.Compressor\"><method name=\"ShowPanel\"/>"
            "<method name=\"Open\"><arg name=\"part\" type=\"s\" direction=\"in\"/>"
            "<arg name=\"folder\" type=\"s\" direction=\"in\"/>"
            "<arg name=\"activationToken\" type=\"s\" direction=\"in\"/></method></interface>");
    }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
        if (message.interface() != interfaceName) return false;
        Request request;
        if (message.member() == openMethod) {
            const QVariantList arguments = message.arguments();
            request.open = partFromName(arguments.value(0).toString());
            const QString folder = arguments.value(1).toString();
            if (!folder.isEmpty()) request.watchDirectory = folder;
            request.activationToken = arguments.value(2).toString();
        } else if (message.member() != showPanelMethod) {
            return false;
        }
        connection.send(message.createReply());
        if (onRequest_) onRequest_(request);
        return true;
    }

  private:
    std::function<void(const Request&)> onRequest_;
};

SingleInstance::SingleInstance(std::function<void(const Request&)> onRequest)
    : endpoint_(std::make_unique<Endpoint>(std::move(onRequest))) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) return;
    if (!bus.registerService(serviceName)) {
        if (bus.interface()->isServiceRegistered(serviceName)) primary_ = false;
        return;
    }
    bus.registerVirtualObject(objectPath, endpoint_.get());
}

bool SingleInstance::forward(const Request& request) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    QDBusMessage call =
        QDBusMessage::createMethodCall(serviceName, objectPath, interfaceName, openMethod);
    call << partName(request.open) << request.watchDirectory.value_or(QString())
         << request.activationToken;
    QDBusMessage reply = bus.call(call, QDBus::Block, 5000);
    if (reply.type() == QDBusMessage::ErrorMessage &&
        reply.errorName() == QLatin1String("org.freedesktop.DBus.Error.UnknownMethod")) {
        reply = bus.call(
            QDBusMessage::createMethodCall(serviceName, objectPath, interfaceName, showPanelMethod),
            QDBus::Block, 5000);
    }
    const bool taken = reply.type() == QDBusMessage::ReplyMessage;
    NativeLog::write(taken ? QStringLiteral("Already running: handed over to it")
                           : QStringLiteral("Already running, but it did not answer: ") +
                                 reply.errorMessage());
    return taken;
}

SingleInstance::~SingleInstance() {
    if (!primary_) return;
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) return;
    bus.unregisterObject(objectPath);
    bus.unregisterService(serviceName);
}

}  // namespace velt::ui
