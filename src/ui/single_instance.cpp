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
const QString showPanelMethod = QStringLiteral("ShowPanel");

}  // namespace

const QString SingleInstance::serviceName = QStringLiteral("com.velt.Compressor");

// Answers ShowPanel calls without a generated adaptor.
class SingleInstance::Endpoint : public QDBusVirtualObject {
  public:
    explicit Endpoint(std::function<void()> onShowPanel) : onShowPanel_(std::move(onShowPanel)) {}

    QString introspect(const QString&) const override {
        return QStringLiteral(
            "<interface name=\"com.velt.Compressor\">"
            "<method name=\"ShowPanel\"/></interface>");
    }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
        if (message.interface() != interfaceName || message.member() != showPanelMethod)
            return false;
        connection.send(message.createReply());
        if (onShowPanel_) onShowPanel_();
        return true;
    }

  private:
    std::function<void()> onShowPanel_;
};

SingleInstance::SingleInstance(std::function<void()> onShowPanel)
    : endpoint_(std::make_unique<Endpoint>(std::move(onShowPanel))) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) return;
    if (!bus.registerService(serviceName)) {
        if (bus.interface()->isServiceRegistered(serviceName)) {
            primary_ = false;
            bus.call(QDBusMessage::createMethodCall(serviceName, objectPath, interfaceName,
                                                    showPanelMethod),
                     QDBus::Block, 5000);
            NativeLog::write(QStringLiteral("Already running: showing its panel"));
        }
        return;
    }
    bus.registerVirtualObject(objectPath, endpoint_.get());
}

SingleInstance::~SingleInstance() {
    if (!primary_) return;
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) return;
    bus.unregisterObject(objectPath);
    bus.unregisterService(serviceName);
}

}  // namespace velt::ui
