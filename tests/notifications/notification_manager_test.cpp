#include "notifications/notification_manager.h"

#include "support/test_environment.h"

#include <gtest/gtest.h>
#include <atomic>
#include <mutex>

namespace velt {
namespace {

using namespace velt::testing;
using Event = CompressionNotificationEvent;

// Shared between the test and the backend the manager owns.
struct BackendScript {
    std::mutex mutex;
    NotificationAuthorization status = NotificationAuthorization::authorized;
    bool grant = false;
    QString authorizationError;
    std::optional<QString> deliveryError;
    std::vector<NotificationRequest> delivered;
};

class ScriptedBackend final : public NotificationBackend {
  public:
    explicit ScriptedBackend(std::shared_ptr<BackendScript> script) : script_(std::move(script)) {}
    NotificationAuthorization authorizationStatus() override {
        const std::lock_guard lock(script_->mutex);
        return script_->status;
    }
    bool requestAuthorization(QString* error) override {
        const std::lock_guard lock(script_->mutex);
        *error = script_->authorizationError;
        return script_->grant;
    }
    void add(const NotificationRequest& request,
             std::function<void(std::optional<QString>)> done) override {
        std::optional<QString> error;
        {
            const std::lock_guard lock(script_->mutex);
            script_->delivered.push_back(request);
            error = script_->deliveryError;
        }
        done(error);
    }

  private:
    std::shared_ptr<BackendScript> script_;
};

class NotificationManagerTest : public ::testing::Test {
  protected:
    NotificationManagerTest()
        : manager_(std::make_unique<ScriptedBackend>(script_),
                   [this] { return start_.addSecs(offset_.load()); }) {}

    // Sends `event` at `seconds` after the start and waits for the queue to finish with it.
    void sendAt(int seconds, const Event& event, bool enabled = true,
                AppLanguage language = AppLanguage::english) {
        offset_ = seconds;
        AppConfig config;
        config.notificationsEnabled = enabled;
        config.language = language;
        manager_.send(config, event);
        manager_.waitUntilIdle();
    }
    std::vector<NotificationRequest> delivered() {
        const std::lock_guard lock(script_->mutex);
        return script_->delivered;
    }
    QStringList logLines() {
        QStringList lines;
        for (const QString& line :
             QString::fromUtf8(readFile(data_.file(QStringLiteral("native.log"))))
                 .split(QLatin1Char('\n'), Qt::SkipEmptyParts))
            lines << line.section(QStringLiteral("] "), 1);
        return lines;
    }

    IsolatedDataFolder data_;
    std::shared_ptr<BackendScript> script_ = std::make_shared<BackendScript>();
    const QDateTime start_ = QDateTime::fromSecsSinceEpoch(1'700'000'000, Qt::UTC);
    std::atomic<int> offset_ = 0;
    NotificationManager manager_;
};

const QString photo = QStringLiteral("/photos/a.jpg");
const Event failed = Event::processingFailed(photo, QStringLiteral("bad data"));

TEST(NotificationCooldown, OncePerKeyWithin180Seconds) {
    struct Step {
        int at;
        Event event;
        bool enabled;
    };
    const struct {
        const char* name;
        std::vector<Step> steps;
        std::size_t expected;
    } cases[] = {
        {"179 s apart", {{0, failed, true}, {179, failed, true}}, 1},
        {"180 s apart", {{0, failed, true}, {180, failed, true}}, 2},
        {"different kinds of the same file",
         {{0, Event::unsupportedFile(photo), true}, {1, failed, true}},
         2},
        {"cooldown restarts only when let through",
         {{0, failed, true}, {100, failed, true}, {180, failed, true}, {359, failed, true}},
         2},
        {"disabled does not consume the cooldown", {{0, failed, false}, {1, failed, true}}, 1},
        {"already optimal never becomes a notification",
         {{0, Event::alreadyOptimal(photo), true}},
         0},
        {"the watcher has one key",
         {{0, Event::watcherFailed(QStringLiteral("a")), true},
          {5, Event::watcherFailed(QStringLiteral("b")), true}},
         1},
    };
    for (const auto& c : cases) {
        IsolatedDataFolder data;
        auto script = std::make_shared<BackendScript>();
        std::atomic<int> offset = 0;
        const QDateTime start = QDateTime::fromSecsSinceEpoch(1'700'000'000, Qt::UTC);
        NotificationManager manager(std::make_unique<ScriptedBackend>(script),
                                    [&] { return start.addSecs(offset.load()); });
        for (const Step& step : c.steps) {
            offset = step.at;
            AppConfig config;
            config.notificationsEnabled = step.enabled;
            manager.send(config, step.event);
            manager.waitUntilIdle();
        }
        const std::lock_guard lock(script->mutex);
        EXPECT_EQ(script->delivered.size(), c.expected) << c.name;
    }
}

TEST_F(NotificationManagerTest, DeliversInTheUsersLanguageAndLogsEachStep) {
    sendAt(0, failed, true, AppLanguage::russian);
    sendAt(10, failed);
    sendAt(20, Event::alreadyOptimal(photo));
    sendAt(30, Event::unsupportedFile(photo), false);
    ASSERT_EQ(delivered().size(), 1u);
    const NotificationRequest request = delivered().front();
    EXPECT_EQ(request.title, QStringLiteral("Не удалось сжать файл"));
    EXPECT_EQ(request.body, QStringLiteral("«a.jpg»: bad data"));
    EXPECT_EQ(request.identifier, QStringLiteral("velt.failed:/photos/a.jpg.1700000000"));
    EXPECT_EQ(logLines(),
              (QStringList{
                  QStringLiteral("Notification deliver failed:/photos/a.jpg status=2"),
                  QStringLiteral("Notification delivered: failed:/photos/a.jpg"),
                  QStringLiteral("Notification skipped by cooldown: failed:/photos/a.jpg"),
                  QStringLiteral("Notification skipped because disabled: "
                                 "unsupported:/photos/a.jpg"),
              }));
}

TEST_F(NotificationManagerTest, RefusedAndFailedDeliveriesAreOnlyLogged) {
    script_->status = NotificationAuthorization::denied;
    sendAt(0, failed);
    script_->status = NotificationAuthorization::authorized;
    sendAt(60, failed);  // a refusal still consumed the cooldown
    script_->status = NotificationAuthorization::notDetermined;
    script_->authorizationError = QStringLiteral("no service");
    sendAt(0, Event::unsupportedFile(photo));
    script_->status = NotificationAuthorization::provisional;
    script_->deliveryError = QStringLiteral("org.freedesktop.DBus.Error.NoReply");
    sendAt(0, Event::watcherFailed(QStringLiteral("gone")));
    EXPECT_EQ(delivered().size(), 1u);
    EXPECT_EQ(
        logLines(),
        (QStringList{
            QStringLiteral("Notification deliver failed:/photos/a.jpg status=1"),
            QStringLiteral("Notification denied by macOS: failed:/photos/a.jpg"),
            QStringLiteral("Notification skipped by cooldown: failed:/photos/a.jpg"),
            QStringLiteral("Notification deliver unsupported:/photos/a.jpg status=0"),
            QStringLiteral("Notification authorization not granted: unsupported:/photos/a.jpg"),
            QStringLiteral("Notification authorization failed: no service"),
            QStringLiteral("Notification deliver watcher status=3"),
            QStringLiteral(
                "Notification delivery failed: watcher org.freedesktop.DBus.Error.NoReply"),
        }));
}

TEST_F(NotificationManagerTest, AuthorizationIsRequestedOnlyWhenUndetermined) {
    manager_.requestAuthorizationIfNeeded();
    manager_.waitUntilIdle();
    script_->status = NotificationAuthorization::notDetermined;
    script_->grant = true;
    manager_.requestAuthorizationIfNeeded();
    manager_.waitUntilIdle();
    EXPECT_EQ(logLines(), (QStringList{
                              QStringLiteral("Notification authorization status=2"),
                              QStringLiteral("Notification authorization status=0"),
                              QStringLiteral("Notification authorization requested granted=true"),
                          }));
}

}  // namespace
}  // namespace velt
