#include "app/headless_runner.h"

#include "app/app_store.h"
#include "app/termination_signals.h"
#include "model/format.h"
#include "model/native_log.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QTimer>
#include <chrono>
#include <cstdio>

namespace velt {
namespace {

using namespace std::chrono_literals;

bool launchSmokeRequested() {
    return qEnvironmentVariable("VELT_LAUNCH_SMOKE") == QLatin1String("1");
}

QString historyLine(const CompressionHistoryEntry& entry, AppLanguage language) {
    const QString name = QFileInfo(entry.sourceURL).fileName();
    QString line = entry.displayStatus(language) + QStringLiteral(": ") + name;
    if (entry.status == CompressionHistoryStatus::compressed && entry.originalBytes &&
        entry.outputBytes)
        line += QStringLiteral(" ") + formatBytes(*entry.originalBytes, language) +
                QStringLiteral(" → ") + formatBytes(*entry.outputBytes, language);
    return line;
}

}  // namespace

HeadlessRunner::HeadlessRunner() : err_(stderr) {}

void HeadlessRunner::line(const QString& text) {
    err_ << text << Qt::endl;
}

void HeadlessRunner::showAlert(const QString& message, const QString& informativeText,
                               const QString&, QObject*) {
    line(message + QStringLiteral(" ") + informativeText);
}

// Nothing destructive happens without someone to ask; --update is the user's answer in
// advance to the one question its run asks.
bool HeadlessRunner::confirm(const QString& message, const QString&, const QString& confirmButton,
                             const QString& cancelButton, QObject*) {
    line(message + QStringLiteral(" → ") + (acceptUpdate_ ? confirmButton : cancelButton));
    return acceptUpdate_;
}

void HeadlessRunner::showInFileBrowser(const QString& path, std::function<void()>) {
    line(path);
}

void HeadlessRunner::openURL(const QString& url) {
    line(url);
}

std::optional<QString> HeadlessRunner::chooseFolder(const QString&, const QString&, QObject*) {
    line(text(language_, Text::headlessGiveFolder));
    return std::nullopt;
}

// Failures and already-optimal files arrive as notices; only finished compressions are added.
void HeadlessRunner::reportNewHistory(const AppStore& store) {
    if (store.history().empty() || store.history().front().id == lastReported_) return;
    const CompressionHistoryEntry& newest = store.history().front();
    lastReported_ = newest.id;
    if (newest.status == CompressionHistoryStatus::compressed)
        line(historyLine(newest, store.config().language));
}

int HeadlessRunner::run(const CommandLineRequest& request) {
    NativeLog::write(QStringLiteral("App launched"));
    AppStore store(this);
    language_ = store.config().language;
    store.setSessionOverrides(request.overrides);
    if (!store.history().empty()) lastReported_ = store.history().front().id;
    store.onChange = [this, &store] { reportNewHistory(store); };
    store.onNotice = [this, &store](const CompressionNotificationEvent& event) {
        const AppLanguage language = store.config().language;
        line(event.title(language) + QStringLiteral(": ") + event.body(language));
    };

    if (launchSmokeRequested()) {
        NativeLog::write(QStringLiteral("Launch smoke complete"));
        QTimer::singleShot(200ms, qApp, [] { QCoreApplication::exit(0); });
        return QCoreApplication::exec();
    }

    if (request.action == CommandLineRequest::Action::update) return runUpdate(store);

    TerminationSignals termination([&store](int signal) {
        NativeLog::write(QStringLiteral("Signal ") + QString::number(signal) +
                         QStringLiteral(" received, stopping"));
        store.shutdown();
        QCoreApplication::exit(0);
    });

    AppStore::LaunchStart launch = AppStore::LaunchStart::started;
    if (request.watchDirectory)
        store.useWatchDirectory(*request.watchDirectory);
    else
        launch = store.startOnLaunch();
    const AppLanguage language = store.config().language;
    if (launch == AppStore::LaunchStart::switchedOff) {
        line(text(language, Text::headlessSwitchedOff));
        return 0;
    }
    if (!store.isRunning()) {
        const QString reason =
            store.watcherError() ? store.watcherError()->inLanguage(language) : QString();
        if (!store.resolvedWatchDirectory()) {
            line(reason);
            line(text(language, Text::headlessGiveFolder));
            return 2;
        }
        line(QStringLiteral("velt-compressor: ") + reason);
        return store.watcherFolderBusy() ? 2 : 1;
    }
    line(text(language, Text::headlessWatching, {*store.resolvedWatchDirectory()}));
    return QCoreApplication::exec();
}

// Ends when the update flow rests: up to date (0) or failed (1). A successful hand-over ends
// the process from the store (0). The state is judged after the current report is handled,
// because a finished check goes straight on to the download.
int HeadlessRunner::runUpdate(AppStore& store) {
    acceptUpdate_ = true;
    store.onChange = [&store] {
        QTimer::singleShot(0, qApp, [&store] {
            if (store.isUpdateBusy()) return;
            QCoreApplication::exit(store.updater().state() == AppUpdaterState::failed ? 1 : 0);
        });
    };
    store.checkUpdates();
    return QCoreApplication::exec();
}

}  // namespace velt
