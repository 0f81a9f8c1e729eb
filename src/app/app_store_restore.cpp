// The store's part of undoing a compression (the request goes to the engine's queue, the answer
// comes back to the main thread, and a refusal reaches the user in one alert), of the backups,
// and of compressing what the user drops.
#include "app/app_store.h"

#include "engine/core/errors.h"
#include "engine/pipeline/restore.h"
#include "model/native_log.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QPointer>

namespace velt {

void AppStore::restore(const QString& file, QObject* window, bool besideWhenTaken) {
    NativeLog::write(QStringLiteral("Restore requested ") + file);
    const QPointer<AppStore> weak(this);
    const QPointer<QObject> owner(window);
    compressor_->restore(
        file, resolvedWatchDirectory(), besideWhenTaken,
        [weak, owner, file, besideWhenTaken](const std::optional<RestoreOutcome>& outcome,
                                             std::exception_ptr error) {
            if (outcome) return;  // the history entry brings it to the views
            QMetaObject::invokeMethod(
                QCoreApplication::instance(),
                [weak, owner, file, besideWhenTaken, error] {
                    if (weak) weak->restoreFailed(error, file, owner.data(), besideWhenTaken);
                },
                Qt::QueuedConnection);
        });
}

void AppStore::restoreFailed(std::exception_ptr error, const QString& file, QObject* window,
                             bool besideWhenTaken) {
    try {
        std::rethrow_exception(error);
    } catch (const RestoreError& refusal) {
        NativeLog::write(QStringLiteral("Restore refused: ") +
                         QString::fromStdString(refusal.what()));
        if (!presenter_) return;
        if (refusal.failure() == RestoreFailure::nameTaken && !besideWhenTaken) {
            const QString info = text(Text::restoreNameTakenInfo,
                                      {QFileInfo(refusal.file()).fileName(),
                                       QFileInfo(restoredBesideName(refusal.file())).fileName()});
            if (presenter_->confirm(text(Text::restoreNameTakenTitle), info,
                                    text(Text::restoreBeside), text(Text::buttonCancel), window))
                restore(file, window, true);
            return;
        }
        showAlert(Text::restoreFailedTitle, refusal.reason().inLanguage(config_.language), window);
    } catch (const std::exception& failure) {
        NativeLog::write(QStringLiteral("Restore failed: ") + errorDescription(failure));
        showAlert(Text::restoreFailedTitle, reasonOf(failure).inLanguage(config_.language), window);
    }
}

void AppStore::compressDropped(const QStringList& paths) {
    NativeLog::write(QStringLiteral("Dropped ") + paths.join(QStringLiteral(", ")));
    compressor_->compressDropped(engineConfig(), paths, nullptr);
}

BackupUsage AppStore::backupUsage() const {
    const auto folder = resolvedWatchDirectory();
    return folder ? velt::backupUsage(*folder) : BackupUsage{};
}

}  // namespace velt
