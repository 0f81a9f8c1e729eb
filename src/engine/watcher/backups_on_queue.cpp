// The engine's work on its backups and undoing, on its queue so that it never meets a scan of the
// same file halfway: FolderCompressor::restore, and the removal of old backups.
#include "engine/watcher/folder_compressor.h"

#include "engine/pipeline/backup_retention.h"
#include "model/file_url.h"

#include <QTimer>

namespace velt {

void FolderCompressor::restore(const QString& file, const std::optional<QString>& watchDirectory,
                               bool besideWhenTaken, RestoreDone done) {
    postUserRequest([this, file, watchDirectory, besideWhenTaken, done = std::move(done)] {
        try {
            const RestoreOutcome outcome =
                restoreFile(*context_.processedRegistry, file,
                            context_.watchDirectory ? context_.watchDirectory : watchDirectory,
                            besideWhenTaken);
            if (outcome.removed) context_.files.forgetWrites(*outcome.removed);
            context_.files.forgetWrites(outcome.original);
            if (const auto signature = fileSignature(outcome.original))
                context_.files.markHandled(outcome.original, *signature);
            context_.sendHistory(restoredHistoryEntry(outcome));
            if (done) done(outcome, nullptr);
        } catch (...) {
            if (done) done(std::nullopt, std::current_exception());
        }
    });
}

void FolderCompressor::startBackupUpkeep() {
    const auto upkeep = [this] {
        if (context_.watchDirectory)
            removeOldBackups(*context_.processedRegistry, *context_.watchDirectory,
                             context_.config.backupRetentionDays, QDate::currentDate());
    };
    upkeep();
    delete upkeepTimer_;
    upkeepTimer_ = new QTimer(queue_.context());
    upkeepTimer_->setInterval(std::chrono::hours(24));
    QObject::connect(upkeepTimer_, &QTimer::timeout, queue_.context(), upkeep);
    upkeepTimer_->start();
}

}  // namespace velt
