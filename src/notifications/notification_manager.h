// NotificationManager: turns CompressionNotificationEvents into desktop notifications, in the
// user's language, at most once per dedupe key within a cooldown of 180 seconds.
//
// The bookkeeping runs on the manager's own serial queue ("com.velt.compressor.notifications"),
// so lastSentByKey needs no lock. Delivery goes through a NotificationBackend, by default the
// freedesktop notification service on the session bus. Every failure is only logged.
//
// Thread-safety: send and requestAuthorizationIfNeeded are called on the main thread; the
// backend is used only on the manager's queue.
#pragma once

#include "model/settings.h"
#include "notifications/compression_notification_event.h"

#include <QDateTime>
#include <QObject>
#include <QString>
#include <QThread>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>

namespace velt {

// The authorization states, numbered as the notification status is logged: 0 not determined,
// 1 denied, 2 authorized, 3 provisional, 4 ephemeral.
enum class NotificationAuthorization {
    notDetermined = 0,
    denied = 1,
    authorized = 2,
    provisional = 3,
    ephemeral = 4
};

struct NotificationRequest {
    QString identifier;  // "velt." + dedupe key + "." + whole seconds since 1970
    QString title;
    QString body;
};

// Where notifications go. Every method is called on the manager's queue.
class NotificationBackend {
  public:
    virtual ~NotificationBackend() = default;
    virtual NotificationAuthorization authorizationStatus() = 0;
    // Asks for permission; `error` receives a reason when asking itself failed.
    virtual bool requestAuthorization(QString* error) = 0;
    // Delivers the request and calls `done` exactly once, with an error text on failure. `done`
    // may run later, but always on the manager's queue.
    virtual void add(const NotificationRequest& request,
                     std::function<void(std::optional<QString> error)> done) = 0;
};

// The freedesktop notification service (org.freedesktop.Notifications) on the session bus:
// reachable counts as authorized (2), unreachable as denied (1).
std::unique_ptr<NotificationBackend> makeDesktopNotificationBackend();

class NotificationManager {
  public:
    using Clock = std::function<QDateTime()>;
    static constexpr std::chrono::seconds cooldown{180};

    // Without arguments: the desktop backend and the system clock.
    explicit NotificationManager(std::unique_ptr<NotificationBackend> backend = nullptr,
                                 Clock clock = nullptr);
    // Drops requests not yet begun and joins the queue.
    ~NotificationManager();
    NotificationManager(const NotificationManager&) = delete;
    NotificationManager& operator=(const NotificationManager&) = delete;

    // Requests a notification for `event` with a copy of the settings: nothing when disabled
    // (logged, the cooldown is not consumed) or when the event never becomes a notification.
    void send(const AppConfig& config, const CompressionNotificationEvent& event);

    // A message of the program's own (not an engine event) under `key`, with the same cooldown;
    // nothing when notifications are switched off.
    void sendMessage(const AppConfig& config, const QString& key, const QString& title,
                     const QString& body);

    // Logs the current status and asks for permission when it is not determined yet.
    void requestAuthorizationIfNeeded();

    // Waits until everything posted before has run on the queue (tests, orderly shutdown).
    void waitUntilIdle();

  private:
    // On the queue.
    bool shouldSend(const QString& key);
    void deliver(const QString& key, const NotificationRequest& request);
    void addRequest(const QString& key, const NotificationRequest& request);
    void post(std::function<void()> work);

    QThread thread_;
    std::unique_ptr<QObject> queue_;  // lives on thread_
    std::unique_ptr<NotificationBackend> backend_;
    Clock clock_;
    std::map<QString, QDateTime> lastSentByKey;  // queue only
};

}  // namespace velt
