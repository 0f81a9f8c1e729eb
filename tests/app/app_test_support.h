// Shared pieces of the application tests: a presenter that records what the store asks, a
// notification backend that records what would be shown, and waiting while the main thread's
// event loop runs (the store receives the engine's reports there).
#pragma once

#include "app/presenter.h"
#include "notifications/notification_manager.h"

#include <QCoreApplication>
#include <QStringList>
#include <chrono>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace velt::testing {

using namespace std::chrono_literals;

template <typename Condition>
bool eventuallyOnMainThread(Condition condition, std::chrono::milliseconds timeout = 5000ms) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (std::chrono::steady_clock::now() < deadline) {
        QCoreApplication::processEvents();
        if (condition()) return true;
        std::this_thread::sleep_for(5ms);
    }
    QCoreApplication::processEvents();
    return condition();
}

class RecordingPresenter final : public Presenter {
  public:
    QStringList alerts;  // message texts
    QStringList confirmations;
    QStringList openedFolders;
    bool confirmAnswer = false;
    std::optional<QString> folderToChoose;

    void showAlert(const QString& message, const QString&, const QString&, QObject*) override {
        alerts << message;
    }
    bool confirm(const QString& message, const QString&, const QString&, const QString&,
                 QObject*) override {
        confirmations << message;
        return confirmAnswer;
    }
    void showError(const QString& description, QObject*) override { alerts << description; }
    void openFolder(const QString& path) override { openedFolders << path; }
    std::optional<QString> chooseFolder(const QString&, QObject*) override {
        return folderToChoose;
    }
};

// Shared with the test after the manager takes ownership of the backend.
struct DeliveredNotifications {
    std::mutex mutex;
    std::vector<NotificationRequest> requests;
    NotificationAuthorization status = NotificationAuthorization::authorized;

    std::vector<NotificationRequest> snapshot() {
        const std::lock_guard lock(mutex);
        return requests;
    }
};

class RecordingBackend final : public NotificationBackend {
  public:
    explicit RecordingBackend(std::shared_ptr<DeliveredNotifications> record)
        : record_(std::move(record)) {}
    NotificationAuthorization authorizationStatus() override {
        const std::lock_guard lock(record_->mutex);
        return record_->status;
    }
    bool requestAuthorization(QString*) override { return false; }
    void add(const NotificationRequest& request,
             std::function<void(std::optional<QString>)> done) override {
        {
            const std::lock_guard lock(record_->mutex);
            record_->requests.push_back(request);
        }
        done(std::nullopt);
    }

  private:
    std::shared_ptr<DeliveredNotifications> record_;
};

}  // namespace velt::testing
