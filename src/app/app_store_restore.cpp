// The store's part of undoing a compression (the request goes to the engine's queue, the answer
// comes back to the main thread, and a refusal reaches the user in one alert) and of the backups.
#include "app/app_store.h"

#include "engine/core/errors.h"
#include "engine/pipeline/restore.h"
#include "model/native_log.h"
#include "model/undo_texts.h"

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
    const AppLanguage language = config_.language;
    try {
        std::rethrow_exception(error);
    } catch (const RestoreError& refusal) {
        NativeLog::write(QStringLiteral("Restore refused: ") +
                         QString::fromStdString(refusal.what()));
        if (!presenter_) return;
        if (refusal.failure() == RestoreFailure::nameTaken && !besideWhenTaken) {
            const QString info = undoText(UndoText::nameTakenInfo, language)
                                     .arg(QFileInfo(refusal.file()).fileName(),
                                          QFileInfo(restoredBesideName(refusal.file())).fileName());
            if (presenter_->confirm(undoText(UndoText::nameTakenTitle, language), info,
                                    undoText(UndoText::restoreAsCopy, language),
                                    undoText(UndoText::cancel, language), window))
                restore(file, window, true);
            return;
        }
        presenter_->showAlert(undoText(UndoText::restoreFailedTitle, language),
                              restoreFailureText(refusal.failure(), refusal.file(), language),
                              text(QStringLiteral("Понятно"), QStringLiteral("OK")), window);
    } catch (const std::exception& failure) {
        NativeLog::write(QStringLiteral("Restore failed: ") + errorDescription(failure));
        if (presenter_) presenter_->showError(errorDescription(failure), window);
    }
}

BackupUsage AppStore::backupUsage() const {
    const auto folder = resolvedWatchDirectory();
    return folder ? velt::backupUsage(*folder) : BackupUsage{};
}

}  // namespace velt
