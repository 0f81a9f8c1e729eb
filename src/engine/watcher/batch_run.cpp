// The batch form of the engine: one pass over a folder, as the command line's --once asks, on
// one or more workers.
#include "engine/core/errors.h"
#include "engine/install/recovery.h"
#include "engine/watcher/candidates.h"
#include "engine/watcher/folder_compressor.h"
#include "engine/watcher/memory_budget.h"
#include "engine/watcher/skip_rules.h"
#include "model/file_url.h"

#include <openssl/crypto.h>
#include <QFileInfo>
#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <thread>

namespace velt {
namespace {

// Sources that share a base name may want the same output name (photo.png and photo.heic both
// becoming photo.jpg): they are handled one after another by one worker, so the naming of one
// always sees the other's output. Groups keep the listing's order.
std::vector<QStringList> groupsByBaseName(const QStringList& files) {
    std::vector<QStringList> groups;
    std::map<QString, std::size_t> index;
    for (const QString& file : files) {
        const QString base =
            splitFileName(file.mid(file.lastIndexOf(QLatin1Char('/')) + 1)).base.toLower();
        const auto [it, added] = index.emplace(base, groups.size());
        if (added) groups.emplace_back();
        groups[it->second] << file;
    }
    return groups;
}

}  // namespace

std::vector<BatchFileResult> FolderCompressor::runOnce(const AppConfig& config,
                                                       const QString& folder,
                                                       const BatchProgress& onFileDone, int jobs,
                                                       bool redo) {
    stop();
    if (!QFileInfo(folder).isDir()) {
        throw FileSystemError(FileSystemError::noSuchFile,
                              QStringLiteral("The folder “%1” doesn’t exist.").arg(folder),
                              Message{Text::folderMissing, {folder}});
    }
    lock_ = std::make_unique<FolderLock>(standardizedPath(folder));
    lifecycle_.beginStart();
    std::vector<BatchFileResult> results;
    std::mutex resultsMutex;
    int total = 0;
    const auto record = [&](BatchFileResult result) {
        const std::lock_guard lock(resultsMutex);
        results.push_back(std::move(result));
        if (onFileDone) onFileDone(results.back(), static_cast<int>(results.size()), total);
    };
    queue_.sync([&] {
        context_.config = config;
        context_.watchDirectory = standardizedPath(folder);
        context_.files.clear();
        context_.stats = CompressionStats();
        recoverInterruptedWork(*context_.watchDirectory);
        const QString watched = *context_.watchDirectory;
        std::vector<BatchFileResult> unreadableNames;
        const QStringList candidates = supportedFiles(
            watched, [](const QString&) {},
            [&](const QByteArray& rawName, const FileSignature& signature) {
                reportUndecodableNameIfNeeded(watched, rawName, signature);
                if (!supportedExtensions.contains(lowerExtension(QString::fromUtf8(rawName))))
                    return;
                unreadableNames.push_back({watched + QLatin1Char('/') + QString::fromUtf8(rawName),
                                           BatchFileResult::Outcome::skipped,
                                           0,
                                           Message{Text::skippedNameNotUtf8, {}},
                                           {}});
            });
        total = static_cast<int>(unreadableNames.size() + candidates.size());
        for (BatchFileResult& result : unreadableNames) record(std::move(result));

        // The skip rules decide first, in listing order; the rest is processed.
        context_.redo = redo;
        takeAsSettled(context_, candidates);
        QStringList toProcess;
        for (const QString& file : candidates) {
            if (shouldSkip(context_, timing_, file))
                record({file,
                        BatchFileResult::Outcome::skipped,
                        0,
                        Message{Text::skippedAlreadyProcessed, {}},
                        {}});
            else
                toProcess << file;
        }

        if (jobs <= 1 || toProcess.size() <= 1) {
            for (const QString& file : toProcess) {
                if (lifecycle_.isCancellationRequested()) break;
                record(runCandidate(context_, file));
                context_.setProgress(100);  // also ends a progress animation the file started
            }
        } else {
            runInParallel(groupsByBaseName(toProcess), jobs, record);
        }
        context_.files.clear();
        context_.redo = false;
    });
    lifecycle_.requestStop();
    lock_.reset();
    return results;
}

void FolderCompressor::runInParallel(const std::vector<QStringList>& groups, int jobs,
                                     const std::function<void(BatchFileResult)>& record) {
    // Several photos encoding at once must fit in memory together.
    const AppConfig& config = context_.config;
    MemoryBudget budget(batchMemory_ ? batchMemory_->budget : batchMemoryBudget());
    const auto estimate = [&](const QString& file) {
        return batchMemory_ ? batchMemory_->estimate(file) : estimatedEncodeBytes(config, file);
    };
    const auto cancelled = [this] { return lifecycle_.isCancellationRequested(); };
    std::atomic<std::size_t> next = 0;
    const auto work = [&] {
        EngineContext worker(lifecycle_, callbacks, context_.processedRegistry);
        worker.config = context_.config;
        worker.watchDirectory = context_.watchDirectory;
        worker.redo = context_.redo;
        worker.scratchDirectory = context_.scratchDirectory;
        for (std::size_t group = next++; group < groups.size(); group = next++) {
            for (const QString& file : groups[group]) {
                if (lifecycle_.isCancellationRequested()) return;
                const MemoryBudget::Reservation memory = budget.reserve(estimate(file), cancelled);
                if (!memory) return;
                record(runCandidate(worker, file));
                worker.setProgress(100);
            }
        }
    };
    const int workers = std::min<int>(jobs, static_cast<int>(groups.size()));
    std::vector<std::thread> threads;
    for (int i = 1; i < workers; ++i)
        threads.emplace_back([&] {
            work();
            OPENSSL_thread_stop();  // the digests' per-thread state, released with the thread
        });
    work();  // the queue's own thread is one of the workers
    for (std::thread& thread : threads) thread.join();
}

}  // namespace velt
