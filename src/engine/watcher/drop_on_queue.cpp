// Compressing what the user dropped onto the panel: the same pipeline, skip rules and safety
// rules as a scan, on the engine's queue between two files, whether or not the engine watches.
#include "engine/core/errors.h"
#include "engine/install/recovery.h"
#include "engine/watcher/candidates.h"
#include "engine/watcher/folder_compressor.h"
#include "engine/watcher/folder_lock.h"
#include "engine/watcher/skip_rules.h"
#include "model/constants.h"
#include "model/file_url.h"
#include "model/native_log.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <map>

namespace velt {
namespace {

// The images to compress, by the folder they are in: a dropped folder brings the images in it
// (not in its sub-folders, as a watched folder does), a dropped file itself. Whatever is neither
// is passed to `notAnImage`, once; so is anything inside a backup folder, which holds the
// originals as they were and is never compressed.
std::map<QString, QStringList> droppedImagesByFolder(
    const QStringList& paths, const std::function<void(const QString&)>& notAnImage) {
    std::map<QString, QStringList> images;
    std::map<QString, std::vector<QByteArray>> namesByFolder;
    std::map<QString, QString> dropped;  // path as standardised → as given
    for (const QString& path : paths) {
        const QString standard = standardizedPath(path);
        const QFileInfo info(standard);
        if (standard.contains(QLatin1Char('/') + backupDirName)) {
            notAnImage(path);
            continue;
        }
        if (info.isDir() && !info.isSymLink()) {
            images[standard] << supportedFiles(standard, [](const QString&) {});
            continue;
        }
        const QString folder = info.absolutePath();
        namesByFolder[folder].push_back(QFile::encodeName(info.fileName()));
        dropped[standard] = path;
    }
    for (const auto& [folder, names] : namesByFolder) {
        const QStringList found = candidatesAmong(folder, names, [](const QString&) {});
        for (const QString& file : found) dropped.erase(standardizedPath(file));
        images[folder] << found;
    }
    for (const auto& [standard, given] : dropped) notAnImage(given);
    std::erase_if(images, [](const auto& entry) { return entry.second.isEmpty(); });
    return images;
}

}  // namespace

void FolderCompressor::compressDropped(const AppConfig& config, const QStringList& paths,
                                       DropDone done) {
    postUserRequest([this, config, paths, done = std::move(done)] {
        // A stopped engine clears its stop flag for the drop and sets it again after; start and
        // stop wait for this task on the queue, so neither meets it halfway.
        const bool watching = lifecycle_.isRunning();
        if (!watching) lifecycle_.beginStart();
        std::vector<BatchFileResult> results;
        const auto images = droppedImagesByFolder(paths, [&](const QString& path) {
            NativeLog::write(QStringLiteral("Dropped file is not an image ") +
                             QFileInfo(path).fileName());
            context_.sendEvent(CompressionNotificationEvent::unsupportedFile(path));
            results.push_back({path,
                               BatchFileResult::Outcome::skipped,
                               0,
                               Message{Text::unsupportedFileTitle, {}},
                               {}});
        });
        for (const auto& [folder, files] : images) {
            if (lifecycle_.isCancellationRequested()) break;
            compressDroppedIn(config, folder, files, watching, results);
        }
        if (!watching) lifecycle_.requestStop();
        if (done) done(results);
    });
}

void FolderCompressor::compressDroppedIn(const AppConfig& config, const QString& folder,
                                         const QStringList& files, bool watching,
                                         std::vector<BatchFileResult>& results) {
    // Another engine's folder is left to it; ours we already hold. Backups go to the folder the
    // file is in, as for a batch of that folder.
    const bool ours = watching && context_.watchDirectory == folder;
    std::unique_ptr<FolderLock> lock;
    try {
        if (!ours) {
            lock = std::make_unique<FolderLock>(folder);
            recoverInterruptedWork(folder);
        }
    } catch (const std::exception& error) {
        NativeLog::write(QStringLiteral("Dropped files not compressed: ") +
                         errorDescription(error));
        for (const QString& file : files)
            results.push_back({file, BatchFileResult::Outcome::failed, 0, reasonOf(error), {}});
        return;
    }
    // A context of its own, so that nothing of the drop stays in the watch's per-file state; the
    // session's counters carry on from the watch's and go back to it.
    EngineContext drop(lifecycle_, callbacks, context_.processedRegistry);
    drop.config = config;
    drop.watchDirectory = folder;
    drop.scratchDirectory = context_.scratchDirectory;
    drop.stats = context_.stats;
    takeAsSettled(drop, files);
    for (const QString& file : files) {
        if (lifecycle_.isCancellationRequested()) break;
        if (shouldSkip(drop, timing_, file)) {
            results.push_back({file,
                               BatchFileResult::Outcome::skipped,
                               0,
                               Message{Text::skippedAlreadyProcessed, {}},
                               {}});
            continue;
        }
        results.push_back(runCandidate(drop, file));
        drop.setProgress(100);
    }
    context_.stats.done = drop.stats.done;
    context_.stats.savedBytes = drop.stats.savedBytes;
    context_.stats.errors = drop.stats.errors;
    context_.sendStats();
}

}  // namespace velt
