#include "ui/tray_monitor.h"

#include "model/native_log.h"
#include "ui/status_notifier_item.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QDBusVariant>
#include <QGuiApplication>
#include <QSystemTrayIcon>

namespace velt::ui {
namespace {

QDBusMessage hostQuery() {
    QDBusMessage call = QDBusMessage::createMethodCall(
        StatusNotifierItem::watcherService, QStringLiteral("/StatusNotifierWatcher"),
        QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    call << StatusNotifierItem::watcherService << QStringLiteral("IsStatusNotifierHostRegistered");
    return call;
}

bool hostRegistered(const QDBusMessage& reply) {
    return reply.type() == QDBusMessage::ReplyMessage && !reply.arguments().isEmpty() &&
           reply.arguments().constFirst().value<QDBusVariant>().variant().toBool();
}

// The toolkit decides once whether its own tray icon goes over D-Bus; asked only while no
// watcher is there, it keeps to XEmbed, and the D-Bus tray is ours.
bool xembedTrayAvailable() {
    return QGuiApplication::platformName() == QLatin1String("xcb") &&
           QSystemTrayIcon::isSystemTrayAvailable();
}

QString describe(TrayMonitor::Kind kind) {
    if (!kind) return QStringLiteral("none");
    return *kind == TrayStatusItem::Kind::xembed ? QStringLiteral("XEmbed")
                                                 : QStringLiteral("StatusNotifierItem");
}

}  // namespace

TrayMonitor::TrayMonitor(std::function<void(Kind)> onChange, int goneDelayMs)
    : onChange_(std::move(onChange)) {
    poll_.setInterval(2000);
    connect(&poll_, &QTimer::timeout, this, [this] { lookAsynchronously(); });
    gone_.setSingleShot(true);
    gone_.setInterval(goneDelayMs);
    connect(&gone_, &QTimer::timeout, this, [this] { report(std::nullopt); });
}

TrayMonitor::~TrayMonitor() = default;

TrayMonitor::Kind TrayMonitor::start() {
    QDBusConnection bus = QDBusConnection::sessionBus();
    bool host = false;
    if (bus.isConnected()) {
        host = hostRegistered(bus.call(hostQuery(), QDBus::Block, 1000));
        watcher_ = std::make_unique<QDBusServiceWatcher>(StatusNotifierItem::watcherService, bus,
                                                         QDBusServiceWatcher::WatchForOwnerChange);
        connect(watcher_.get(), &QDBusServiceWatcher::serviceOwnerChanged, this,
                [this] { lookAsynchronously(); });
    }
    kind_ = host                    ? Kind(TrayStatusItem::Kind::statusNotifier)
            : xembedTrayAvailable() ? Kind(TrayStatusItem::Kind::xembed)
                                    : std::nullopt;
    NativeLog::write(QStringLiteral("System tray: ") + describe(kind_));
    poll_.start();
    return kind_;
}

void TrayMonitor::lookAsynchronously() {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        settle(false);
        return;
    }
    if (looking_) return;
    looking_ = true;
    auto* pending = new QDBusPendingCallWatcher(bus.asyncCall(hostQuery(), 1000), this);
    connect(pending, &QDBusPendingCallWatcher::finished, this,
            [this](QDBusPendingCallWatcher* finished) {
                looking_ = false;
                finished->deleteLater();
                settle(!finished->isError() && hostRegistered(finished->reply()));
            });
}

void TrayMonitor::settle(bool statusNotifierHost) {
    const Kind now = statusNotifierHost      ? Kind(TrayStatusItem::Kind::statusNotifier)
                     : xembedTrayAvailable() ? Kind(TrayStatusItem::Kind::xembed)
                                             : std::nullopt;
    if (now) {
        gone_.stop();
        report(now);
    } else if (kind_ && !gone_.isActive()) {
        gone_.start();
    }
}

void TrayMonitor::report(Kind kind) {
    if (kind == kind_) return;
    kind_ = kind;
    NativeLog::write(QStringLiteral("System tray now: ") + describe(kind_));
    onChange_(kind_);
}

}  // namespace velt::ui
