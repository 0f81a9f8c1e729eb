// The batch form of the engine: one pass over a folder, as the command line's --once asks.
#include "engine/errors.h"
#include "engine/watcher/candidates.h"
#include "engine/watcher/folder_compressor.h"
#include "engine/watcher/skip_rules.h"
#include "model/file_url.h"
#include "model/native_log.h"

#include <QFileInfo>

namespace velt {

std::vector<BatchFileResult> FolderCompressor::runOnce(const AppConfig& config,
                                                       const QString& folder) {
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
        QSet<QString> compressedOutputs;
        const QStringList candidates = supportedFiles(
            *context_.watchDirectory, [](const QString&) {}, &compressedOutputs);
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
                results.push_back({file, BatchFileResult::Outcome::skipped, 0, {}});
                continue;
            }
            results.push_back(processBatchFile(file));
        }
        context_.listedCompressedOutputs.reset();
        context_.clearFileMaps();
    });
    lifecycle_.requestStop();
    return results;
}

BatchFileResult FolderCompressor::processBatchFile(const QString& file) {
    BatchFileResult outcome{file, BatchFileResult::Outcome::skipped, 0, {}};
    try {
        const FolderCompressionResult result = processor_(context_, file);
        NativeLog::write(QStringLiteral("Processed ") + QFileInfo(file).fileName() +
                         QStringLiteral(" wrote=") +
                         (result.didWrite ? QStringLiteral("true") : QStringLiteral("false")) +
                         QStringLiteral(" saved=") + QString::number(result.savedBytes));
        if (result.didWrite) {
            context_.stats.done += 1;
            context_.stats.savedBytes += std::max<std::int64_t>(result.savedBytes, 0);
            outcome.outcome = BatchFileResult::Outcome::compressed;
            outcome.savedBytes = result.savedBytes;
        } else if (result.historyEntry &&
                   result.historyEntry->status == CompressionHistoryStatus::alreadyOptimal) {
            outcome.outcome = BatchFileResult::Outcome::alreadyOptimal;
        } else {
            outcome.message = QStringLiteral("existing output is up to date");
        }
        if (result.historyEntry) context_.sendHistory(*result.historyEntry);
    } catch (const FolderCompressorControlError& error) {
        NativeLog::write(QStringLiteral("Processing stopped ") + QFileInfo(file).fileName() +
                         QStringLiteral(": ") + QString::fromUtf8(error.what()));
        outcome.message = QString::fromUtf8(error.what());
    } catch (const std::exception& error) {
        reportFailure(file, error);
        outcome.outcome = BatchFileResult::Outcome::failed;
        outcome.message = errorDescription(error);
    }
    context_.setProgress(100);  // also ends a progress animation the file may have started
    return outcome;
}

}  // namespace velt
