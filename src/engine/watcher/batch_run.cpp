// The batch form of the engine: one pass over a folder, as the command line's --once asks.
#include "engine/errors.h"
#include "engine/install/recovery.h"
#include "engine/watcher/candidates.h"
#include "engine/watcher/folder_compressor.h"
#include "engine/watcher/skip_rules.h"
#include "model/file_url.h"

#include <QFileInfo>

namespace velt {

std::vector<BatchFileResult> FolderCompressor::runOnce(const AppConfig& config,
                                                       const QString& folder,
                                                       const BatchProgress& onFileDone) {
    stop();
    if (!QFileInfo(folder).isDir()) {
        throw FileSystemError(FileSystemError::noSuchFile,
                              QStringLiteral("The folder “%1” doesn’t exist.").arg(folder));
    }
    lifecycle_.beginStart();
    std::vector<BatchFileResult> results;
    queue_.sync([&] {
        context_.config = config;
        context_.watchDirectory = standardizedPath(folder);
        context_.clearFileMaps();
        context_.stats = CompressionStats();
        recoverInterruptedWork(*context_.watchDirectory);
        QSet<QString> compressedOutputs;
        const QString watched = *context_.watchDirectory;
        const QStringList candidates = supportedFiles(
            watched, [](const QString&) {}, &compressedOutputs,
            [&](const QByteArray& rawName, const FileSignature& signature) {
                reportUndecodableNameIfNeeded(watched, rawName, signature);
                if (!supportedExtensions.contains(lowerExtension(QString::fromUtf8(rawName))))
                    return;
                results.push_back({watched + QLatin1Char('/') + QString::fromUtf8(rawName),
                                   BatchFileResult::Outcome::skipped, 0,
                                   QStringLiteral("the file name is not valid UTF-8")});
            });
        const int total = static_cast<int>(results.size() + candidates.size());
        const auto record = [&](BatchFileResult result) {
            results.push_back(std::move(result));
            if (onFileDone) onFileDone(results.back(), static_cast<int>(results.size()), total);
        };
        if (onFileDone) {
            for (int i = 0; i < static_cast<int>(results.size()); ++i)
                onFileDone(results[i], i + 1, total);
        }
        context_.listedCompressedOutputs = std::move(compressedOutputs);
        // A batch is asked for what is there now: every file counts as settled, so it is seen
        // as pending since long enough ago and the stability rule lets it through at once.
        const auto settledSince = EngineClock::now() - timing_.writeStability;
        for (const QString& file : candidates) {
            if (lifecycle_.isCancellationRequested()) break;
            if (const auto signature = fileSignature(file))
                context_.pendingFiles[standardizedPath(file)] =
                    PendingFile{*signature, settledSince};
            if (shouldSkip(context_, timing_, file)) {
                record({file, BatchFileResult::Outcome::skipped, 0, {}});
                continue;
            }
            record(runCandidate(file));
            context_.setProgress(100);  // also ends a progress animation the file started
        }
        context_.listedCompressedOutputs.reset();
        context_.clearFileMaps();
    });
    lifecycle_.requestStop();
    return results;
}

}  // namespace velt
