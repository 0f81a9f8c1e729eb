// The store's part of the self-update: the update button's title, the check with its alerts,
// and the hand-over that ends the process.
#include "app/app_store.h"

#include "model/constants.h"
#include "model/native_log.h"

#include <QCoreApplication>
#include <QPointer>

namespace velt {

// Like the engine's reports, the updater's are handed to the main thread's queue and dropped
// once the store is gone.
void AppStore::wireUpdater() {
    const QPointer<AppStore> weak(this);
    updater_->onChange = [weak] {
        QMetaObject::invokeMethod(
            QCoreApplication::instance(),
            [weak] {
                if (weak) weak->changed();
            },
            Qt::QueuedConnection);
    };
}

QString AppStore::updateButtonTitle() const {
    switch (updater_->state()) {
        case AppUpdaterState::checking:
            return text(Text::updateChecking);
        case AppUpdaterState::downloading:
            return text(Text::updateDownloading);
        case AppUpdaterState::installing:
            return text(Text::updateRestarting);
        case AppUpdaterState::idle:
        case AppUpdaterState::failed:
            break;
    }
    return text(Text::updateCheck);
}

void AppStore::openWebsite() {
    if (presenter_) presenter_->openURL(websiteURL().toString());
}

void AppStore::checkUpdates(QObject* window) {
    if (updater_->isBusy()) return;
    if (const auto& ready = updater_->readyUpdate()) return offerUpdate(*ready, window);
    const QPointer<AppStore> weak(this);
    const QPointer<QObject> origin(window);
    updater_->check([weak, origin](const UpdateResult<AppUpdateCheckResult>& result) {
        if (!weak) return;
        if (const auto* failure = std::get_if<UpdateFailure>(&result))
            return weak->showUpdateError(*failure, origin);
        const auto& checked = std::get<AppUpdateCheckResult>(result);
        if (const auto* manifest = std::get_if<AppUpdateManifest>(&checked))
            return weak->offerUpdate(*manifest, origin);
        const QString version = std::get<UpToDate>(checked).installedVersion;
        weak->showAlert(Text::upToDateTitle,
                        weak->text(Text::upToDateExplanation, {appName, version}), origin);
    });
}

void AppStore::offerUpdate(const AppUpdateManifest& manifest, QObject* window) {
    if (!presenter_) return;
    const bool accepted =
        presenter_->confirm(text(Text::updateAvailableTitle, {manifest.version}),
                            text(Text::updateAvailableExplanation), text(Text::updateNow),
                            text(Text::updateLater), window);
    if (accepted) downloadAndInstall(manifest, window);
}

void AppStore::downloadAndInstall(const AppUpdateManifest& manifest, QObject* window) {
    const QPointer<AppStore> weak(this);
    const QPointer<QObject> origin(window);
    updater_->download(manifest, [weak, origin](const UpdateResult<QString>& result) {
        if (!weak) return;
        if (const auto* failure = std::get_if<UpdateFailure>(&result))
            return weak->showUpdateError(*failure, origin);
        weak->install(origin);
    });
}

void AppStore::install(QObject* window) {
    const bool wasRunning = compressor_->isRunning();
    // Only the engine stops: the saved switch stays on, so the new version resumes watching.
    compressor_->stop();
    const QPointer<AppStore> weak(this);
    const QPointer<QObject> origin(window);
    updater_->installAndRestart(
        [weak, origin, wasRunning](const std::optional<UpdateFailure>& failure) {
            if (!weak) return;
            if (failure) {
                if (wasRunning) weak->start();
                return weak->showUpdateError(*failure, origin);
            }
            NativeLog::write(QStringLiteral("Update helper started; terminating for installation"));
            if (weak->onTerminateForUpdate)
                weak->onTerminateForUpdate();
            else
                QCoreApplication::exit(0);
        });
}

void AppStore::showUpdateError(const UpdateFailure& failure, QObject* window) {
    NativeLog::write(QStringLiteral("Update error: ") + failure.description);
    showAlert(Text::updateFailedTitle, failure.userMessage(config_.language), window);
}

}  // namespace velt
