// The freedesktop notification service over the session bus. Used only on the notification
// manager's queue, never on the thread of a service it calls, so the bus calls there may wait.
#include "model/constants.h"
#include "notifications/notification_manager.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QFileInfo>
#include <QUrl>
#include <QVariantMap>

namespace velt {
namespace {

const QString serviceName = QStringLiteral("org.freedesktop.Notifications");
const QString objectPath = QStringLiteral("/org/freedesktop/Notifications");
constexpr int callTimeoutMs = 5000;

// The program's icon: the installed file beside the program (a package, the portable bundle, the
// build tree's copy of the resources), else its name in the icon theme.
QString programIcon() {
    const QString share = QCoreApplication::applicationDirPath() + QStringLiteral("/../share/");
    for (const QString& candidate :
         {share + QStringLiteral("icons/hicolor/scalable/apps/velt-compressor.svg"),
          share + QStringLiteral("velt-compressor/status-icon.svg")}) {
        if (QFileInfo::exists(candidate))
            return QUrl::fromLocalFile(QFileInfo(candidate).canonicalFilePath()).toString();
    }
    return QStringLiteral("velt-compressor");
}

class DesktopNotificationBackend final : public NotificationBackend {
  public:
    NotificationAuthorization authorizationStatus() override {
        return serviceReachable() ? NotificationAuthorization::authorized
                                  : NotificationAuthorization::denied;
    }

    // A desktop service needs no permission: asking is granted whenever it is there.
    bool requestAuthorization(QString* error) override {
        if (serviceReachable()) return true;
        if (error) *error = QStringLiteral("the desktop notification service is not available");
        return false;
    }

    void add(const NotificationRequest& request,
             std::function<void(std::optional<QString>)> done) override {
        QDBusMessage call = QDBusMessage::createMethodCall(serviceName, objectPath, serviceName,
                                                           QStringLiteral("Notify"));
        QVariantMap hints;
        hints.insert(QStringLiteral("desktop-entry"), QStringLiteral("velt-compressor"));
        hints.insert(QStringLiteral("x-velt-identifier"), request.identifier);
        // Bodies are markup for some services: a file name with "&" or "<" must stay text.
        const QString body = supportsBodyMarkup() ? request.body.toHtmlEscaped() : request.body;
        static const QString icon = programIcon();
        call << appName << uint(0) << icon << request.title << body << QStringList() << hints
             << int(-1);
        const QDBusPendingCall pending = bus().asyncCall(call, callTimeoutMs);
        auto* watcher = new QDBusPendingCallWatcher(pending);
        QObject::connect(
            watcher, &QDBusPendingCallWatcher::finished, watcher,
            [done = std::move(done)](QDBusPendingCallWatcher* finished) {
                const QDBusPendingReply<uint> reply = *finished;
                if (reply.isError())
                    done(reply.error().name() + QStringLiteral(": ") + reply.error().message());
                else
                    done(std::nullopt);
                finished->deleteLater();
            });
    }

  private:
    static QDBusConnection bus() { return QDBusConnection::sessionBus(); }

    bool serviceReachable() {
        const QDBusConnection connection = bus();
        if (!connection.isConnected() || !connection.interface()) return false;
        if (connection.interface()->isServiceRegistered(serviceName).value()) return true;
        const QDBusMessage reply = connection.call(
            QDBusMessage::createMethodCall(
                QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
                QStringLiteral("org.freedesktop.DBus"), QStringLiteral("ListActivatableNames")),
            QDBus::Block, callTimeoutMs);
        return reply.type() == QDBusMessage::ReplyMessage && !reply.arguments().isEmpty() &&
               reply.arguments().constFirst().toStringList().contains(serviceName);
    }

    bool supportsBodyMarkup() {
        if (!bodyMarkup_) {
            const QDBusMessage reply =
                bus().call(QDBusMessage::createMethodCall(serviceName, objectPath, serviceName,
                                                          QStringLiteral("GetCapabilities")),
                           QDBus::Block, callTimeoutMs);
            if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
                return false;  // asked again next time
            bodyMarkup_ = reply.arguments().constFirst().toStringList().contains(
                QStringLiteral("body-markup"));
        }
        return *bodyMarkup_;
    }

    std::optional<bool> bodyMarkup_;
};

}  // namespace

std::unique_ptr<NotificationBackend> makeDesktopNotificationBackend() {
    return std::make_unique<DesktopNotificationBackend>();
}

}  // namespace velt
