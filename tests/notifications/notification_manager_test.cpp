// NotificationManager with a scripted backend in place of the desktop's notification service:
// the cooldown per dedupe key, and exactly what is delivered and logged at each step.
#include "notifications/notification_manager.h"

#include "support/test_environment.h"

#include <gtest/gtest.h>
#include <QRegularExpression>
#include <QTimeZone>
#include <atomic>

namespace velt {
namespace {

using Event = CompressionNotificationEvent;
using enum NotificationAuthorization;

// Changed by the test only while the manager is idle.
class ScriptedBackend final : public NotificationBackend {
  public:
    NotificationAuthorization status = authorized;
    QString error;  // refuses authorization requests and deliveries when not empty
    std::vector<NotificationRequest> delivered;

    NotificationAuthorization authorizationStatus() override { return status; }
    bool requestAuthorization(QString* answer) override {
        *answer = error;
        return error.isEmpty();
    }
    void add(const NotificationRequest& request,
             std::function<void(std::optional<QString>)> done) override {
        delivered.push_back(request);
        done(error.isEmpty() ? std::nullopt : std::optional(error));
    }
};

TEST(NotificationManager, CooldownDeliveryAndLogLines) {
    const testing::IsolatedDataFolder data;
    auto owned = std::make_unique<ScriptedBackend>();
    ScriptedBackend& backend = *owned;
    std::atomic<int> offset = 0;
    NotificationManager manager(std::move(owned), [&] {
        return QDateTime::fromSecsSinceEpoch(1'700'000'000 + offset, QTimeZone::utc());
    });
    const QString photo = QStringLiteral("/x");
    const Event failed = Event::processingFailed(photo, {Text::fileTruncated, {}});
    const Event unsupported = Event::unsupportedFile(photo);
    const Event watcher = Event::watcherFailed({Text::folderMissing, {photo}});
    // Seconds after the start; the event (none: requestAuthorizationIfNeeded); notifications
    // enabled; the backend's status and error; the new log lines after "Notification ".
    // clang-format off
    const std::tuple<int, std::optional<Event>, bool, NotificationAuthorization, const char*,
                     const char*> steps[] = {
        {0, failed, true, authorized, "", "to deliver key=\"failed:/x\" status=2|delivered: failed:/x"},
        {179, failed, true, authorized, "", "skipped by cooldown: failed:/x"},
        {180, failed, true, authorized, "", "to deliver key=\"failed:/x\" status=2|delivered: failed:/x"},
        {181, unsupported, false, authorized, "", "skipped because disabled: unsupported:/x"},
        {182, unsupported, true, authorized, "",
         "to deliver key=\"unsupported:/x\" status=2|delivered: unsupported:/x"},
        {183, Event::alreadyOptimal(photo), true, authorized, "", ""},
        {184, watcher, true, denied, "", "to deliver key=\"watcher\" status=1|"
         "not shown, no notification service on the session bus: watcher"},
        {185, watcher, true, authorized, "", "skipped by cooldown: watcher"},
        {400, watcher, true, notDetermined, "no service", "to deliver key=\"watcher\" status=0|"
         "authorization not granted: watcher|authorization failed: no service"},
        {600, watcher, true, provisional, "org.freedesktop.DBus.Error.NoReply",
         "to deliver key=\"watcher\" status=3|"
         "delivery failed: watcher org.freedesktop.DBus.Error.NoReply"},
        {601, {}, true, notDetermined, "",
         "authorization status=0|authorization requested granted=true"},
    };
    // clang-format on
    qsizetype seen = 0;
    for (const auto& [at, event, enabled, status, error, log] : steps) {
        offset = at;
        backend.status = status;
        backend.error = QString::fromUtf8(error);
        AppConfig config;
        config.notificationsEnabled = enabled;
        config.language = AppLanguage::russian;
        event ? manager.send(config, *event) : manager.requestAuthorizationIfNeeded();
        manager.waitUntilIdle();
        const QStringList lines =
            QString::fromUtf8(testing::readFile(data.file(QStringLiteral("native.log"))))
                .split(u'\n', Qt::SkipEmptyParts)
                .replaceInStrings(QRegularExpression(QStringLiteral("^\\[.*\\] Notification ")),
                                  QString());
        EXPECT_EQ(lines.mid(seen).join(u'|'), QString::fromUtf8(log)) << at;
        seen = lines.size();
    }
    ASSERT_EQ(backend.delivered.size(), 4u);  // in the user's language, named by key and time
    const NotificationRequest& first = backend.delivered.front();
    EXPECT_EQ(QStringList({first.identifier, first.title, first.body}).join(u'|'),
              QStringLiteral("velt.failed:/x.1700000000|Не удалось сжать файл|«x»: ") +
                  text(AppLanguage::russian, Text::fileTruncated));
}

}  // namespace
}  // namespace velt
