// Shared by the widget tests: an application with widgets on the offscreen platform, a store
// over temporary folders, pixels and screenshots.
#pragma once

#include "app/app_store.h"
#include "app/presenter.h"
#include "support/test_environment.h"

#include <gtest/gtest.h>
#include <QImage>
#include <QTemporaryDir>
#include <QWidget>
#include <deque>
#include <functional>
#include <memory>

namespace velt::testing {

// A store over its own data, XDG config and watched folders, without desktop notifications.
struct StoreFixture {
    IsolatedDataFolder data;
    ScopedEnvironment xdgConfig{"XDG_CONFIG_HOME", data.file(QStringLiteral("xdg")).toUtf8()};
    ScopedEnvironment noSessionBus{"DBUS_SESSION_BUS_ADDRESS", std::nullopt};
    QTemporaryDir folder;
};

// Answers the store's dialogs from a script and records what was asked.
class ScriptedPresenter : public Presenter {
  public:
    std::deque<bool> confirmAnswers;  // the next confirm() answers; empty = cancel
    QStringList asked;                // every message shown, in order
    QStringList opened;               // folders and pages opened

    void showAlert(const QString& message, const QString&, const QString&, QObject*) override {
        asked << message;
    }
    bool confirm(const QString& message, const QString&, const QString&, const QString&,
                 QObject*) override {
        asked << message;
        if (confirmAnswers.empty()) return false;
        const bool answer = confirmAnswers.front();
        confirmAnswers.pop_front();
        return answer;
    }
    void showError(const QString& description, QObject*) override { asked << description; }
    void openFolder(const QString& path) override { opened << path; }
    void openURL(const QString& url) override { opened << url; }
    std::optional<QString> chooseFolder(const QString& title, QObject*) override {
        asked << title;
        return std::nullopt;
    }
};

// Runs the event loop until `done` holds or `seconds` pass; whether it held.
bool processEventsUntil(const std::function<bool()>& done, double seconds = 5.0);

// The widget's real pixels, as it paints itself.
QImage pixelsOf(QWidget& widget);

// Saves `image` as <build>/test-artifacts/<name>.png for a reviewer to look at.
void keepScreenshot(const QImage& image, const QString& name);

// The bounding box of the pixels of `image` that differ from `background` by more than
// `tolerance` in any channel.
QRect boundsOfPixelsUnlike(const QImage& image, QColor background, int tolerance = 40);

}  // namespace velt::testing
