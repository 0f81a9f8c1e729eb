#include "notifications/notification_manager.h"

#include "model/native_log.h"

namespace velt {
namespace {

QString status(NotificationAuthorization authorization) {
    return QString::number(static_cast<int>(authorization));
}

}  // namespace

NotificationManager::NotificationManager(std::unique_ptr<NotificationBackend> backend, Clock clock)
    : queue_(std::make_unique<QObject>()),
      backend_(backend ? std::move(backend) : makeDesktopNotificationBackend()),
      clock_(clock ? std::move(clock) : Clock([] { return QDateTime::currentDateTimeUtc(); })) {
    thread_.setObjectName(QStringLiteral("com.velt.compressor.notifications"));
    queue_->moveToThread(&thread_);
    thread_.start();
}

NotificationManager::~NotificationManager() {
    thread_.quit();
    thread_.wait();
}

void NotificationManager::post(std::function<void()> work) {
    QMetaObject::invokeMethod(queue_.get(), std::move(work), Qt::QueuedConnection);
}

void NotificationManager::waitUntilIdle() {
    QMetaObject::invokeMethod(
        queue_.get(), [] {}, Qt::BlockingQueuedConnection);
}

void NotificationManager::send(const AppConfig& config, const CompressionNotificationEvent& event) {
    if (!event.allowsSystemNotification()) return;
    sendMessage(config, event.dedupeKey(), event.title(config.language),
                event.body(config.language));
}

void NotificationManager::sendMessage(const AppConfig& config, const QString& key,
                                      const QString& title, const QString& body) {
    if (!config.notificationsEnabled) {
        NativeLog::write(QStringLiteral("Notification skipped because disabled: ") + key);
        return;
    }
    // The queue belongs to this object and is joined by its destructor, so work that runs at
    // all runs while the manager exists.
    post([this, key, title, body] {
        if (!shouldSend(key)) return;
        NotificationRequest request;
        request.identifier = QStringLiteral("velt.") + key + QLatin1Char('.') +
                             QString::number(clock_().toSecsSinceEpoch());
        request.title = title;
        request.body = body;
        deliver(key, request);
    });
}

// The cooldown is consumed here, before anything is known about delivery: a refused or failed
// notification still blocks its key for the whole cooldown.
bool NotificationManager::shouldSend(const QString& key) {
    const QDateTime now = clock_();
    const auto last = lastSentByKey.find(key);
    if (last != lastSentByKey.end() &&
        now < last->second.addSecs(static_cast<qint64>(cooldown.count()))) {
        NativeLog::write(QStringLiteral("Notification skipped by cooldown: ") + key);
        return false;
    }
    lastSentByKey[key] = now;
    return true;
}

void NotificationManager::deliver(const QString& key, const NotificationRequest& request) {
    const NotificationAuthorization authorization = backend_->authorizationStatus();
    // The key is quoted: "failed:/x" names a failed file, not a failed delivery.
    NativeLog::write(QStringLiteral("Notification to deliver key=\"") + key +
                     QStringLiteral("\" status=") + status(authorization));
    switch (authorization) {
        case NotificationAuthorization::authorized:
        case NotificationAuthorization::provisional:
        case NotificationAuthorization::ephemeral:
            addRequest(key, request);
            return;
        case NotificationAuthorization::notDetermined: {
            QString error;
            if (backend_->requestAuthorization(&error)) {
                addRequest(key, request);
                return;
            }
            NativeLog::write(QStringLiteral("Notification authorization not granted: ") + key);
            if (!error.isEmpty())
                NativeLog::write(QStringLiteral("Notification authorization failed: ") + error);
            return;
        }
        case NotificationAuthorization::denied:
            NativeLog::write(QStringLiteral("Notification not shown, no notification service on "
                                            "the session bus: ") +
                             key);
            return;
    }
}

void NotificationManager::addRequest(const QString& key, const NotificationRequest& request) {
    backend_->add(request, [key](std::optional<QString> error) {
        if (error) {
            NativeLog::write(QStringLiteral("Notification delivery failed: ") + key +
                             QLatin1Char(' ') + *error);
        } else {
            NativeLog::write(QStringLiteral("Notification delivered: ") + key);
        }
    });
}

void NotificationManager::requestAuthorizationIfNeeded() {
    post([this] {
        const NotificationAuthorization authorization = backend_->authorizationStatus();
        NativeLog::write(QStringLiteral("Notification authorization status=") +
                         status(authorization));
        if (authorization != NotificationAuthorization::notDetermined) return;
        QString error;
        const bool granted = backend_->requestAuthorization(&error);
        NativeLog::write(QStringLiteral("Notification authorization requested granted=") +
                         (granted ? QStringLiteral("true") : QStringLiteral("false")));
        if (!error.isEmpty())
            NativeLog::write(QStringLiteral("Notification authorization failed: ") + error);
    });
}

}  // namespace velt
