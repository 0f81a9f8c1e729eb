#include "engine/watcher/folder_compressor.h"

#include "engine/core/errors.h"
#include "engine/install/recovery.h"
#include "engine/pipeline/process.h"
#include "engine/watcher/candidates.h"
#include "engine/watcher/failures.h"
#include "engine/watcher/skip_rules.h"
#include "model/file_url.h"
#include "model/native_log.h"

#include <QDir>
#include <QFileInfo>
#include <QThread>
#include <QUuid>

namespace velt {
namespace {

QString fileName(const QString& path) {
    return QFileInfo(path).fileName();
}

}  // namespace

FolderCompressor::FolderCompressor()
    : queue_(QStringLiteral("com.velt.compressor.folder")),
      context_(lifecycle_, callbacks),
      processor_(&process) {
    context_.scratchDirectory = scratch_.path();
}

FolderCompressor::~FolderCompressor() {
    stop();
}

void FolderCompressor::start(const AppConfig& config, const QString& watchDirectory) {
    stop();
    // One engine per folder: a second one would compress the same files twice.
    lock_ = std::make_unique<FolderLock>(standardizedPath(watchDirectory));
    lifecycle_.beginStart();
    queue_.sync([&] {
        context_.config = config;
        context_.watchDirectory = standardizedPath(watchDirectory);
        context_.files.clear();
    });
    const QFileInfo folder(watchDirectory);
    if (!folder.isDir()) {
        lock_.reset();
        throw FileSystemError(FileSystemError::noSuchFile,
                              QStringLiteral("The folder “%1” doesn’t exist.").arg(watchDirectory),
                              Message{Text::folderMissing, {watchDirectory}});
    }
    queue_.sync([this] {
        // What a killed run left is put back or removed before anything is looked at.
        recoverInterruptedWork(*context_.watchDirectory);
        context_.stats = CompressionStats();
        context_.sendStats();
        if (fileEventsEnabled_)
            events_ = std::make_unique<FolderEvents>(*context_.watchDirectory, queue_.context());
        planner_.reset();
        startPolling();
        startBackupUpkeep();
        scheduleScan();
    });
    lifecycle_.markRunning();
}

void FolderCompressor::stop() {
    lifecycle_.requestStop();
    // On the queue this runs at once; from elsewhere it waits for the file in progress.
    queue_.sync([this] {
        stopTimers();
        events_.reset();
        context_.smoothProgressTimer.reset();
        context_.files.clear();
        context_.stats.active = 0;
        context_.stats.progress.reset();
        context_.sendStats();
    });
    lock_.reset();
}

bool FolderCompressor::isRunning() const {
    return lifecycle_.isRunning();
}

void FolderCompressor::stopTimers() {
    delete workItem_;
    workItem_ = nullptr;
    delete timer_;
    timer_ = nullptr;
    delete upkeepTimer_;
    upkeepTimer_ = nullptr;
}

void FolderCompressor::startPolling() {
    delete timer_;
    timer_ = new QTimer(queue_.context());
    timer_->setInterval(timing_.polling);
    QObject::connect(timer_, &QTimer::timeout, queue_.context(), [this] {
        if (scanIsDue()) scheduleScan();
    });
    timer_->start();
}

void FolderCompressor::scheduleScan() {
    if (lifecycle_.isCancellationRequested()) return;
    // Restarting the single-shot timer replaces an older pending request.
    if (!workItem_) {
        workItem_ = new QTimer(queue_.context());
        workItem_->setSingleShot(true);
        QObject::connect(workItem_, &QTimer::timeout, queue_.context(), [this] { scan(); });
    }
    workItem_->start(timing_.scanDebounce);
}

bool FolderCompressor::scanIsDue() {
    const auto now = EngineClock::now();
    // Write records that ran out need no look: the file is known by its handled signature, its
    // record in the registry and its marker from then on.
    context_.files.expireWrites(now, timing_.recentWriteCooldown, timing_.ownWriteSettling);
    return planner_.tick(
        events_.get(),
        !context_.files.waitingFiles().empty() || !context_.files.retriesDue(now).empty(), now,
        timing_.fullScan);
}

QStringList FolderCompressor::candidatesToLookAt(const QString& folder, bool& listing) {
    ScanPlanner::Plan plan = planner_.takePlan(folder);
    listing = plan.listing;
    const auto unsupported = [this](const QString& file) { reportUnsupportedIfNeeded(file); };
    const auto undecodable = [this, &folder](const QByteArray& rawName, const FileSignature& sig) {
        reportUndecodableNameIfNeeded(folder, rawName, sig);
    };
    if (plan.listing) {
        QStringList candidates = supportedFiles(folder, unsupported, undecodable);
        planner_.listed(candidates);
        NativeLog::debug(QStringLiteral("Scan ") + folder + QStringLiteral(" files=") +
                         QString::number(candidates.size()));
        return candidates;
    }
    // Files listed before and files waiting to hold still pass the same rules again: one may
    // have become a link or a folder since.
    const auto addName = [&](const QString& path) {
        plan.names.push_back(QFile::encodeName(path.mid(path.lastIndexOf(QLatin1Char('/')) + 1)));
    };
    for (const QString& path : plan.again) addName(path);
    for (const QString& path : context_.files.waitingFiles()) addName(path);
    for (const QString& path : context_.files.retriesDue(EngineClock::now())) addName(path);
    std::ranges::sort(plan.names);
    plan.names.erase(std::unique(plan.names.begin(), plan.names.end()), plan.names.end());
    QStringList candidates = candidatesAmong(folder, plan.names, unsupported, undecodable);
    NativeLog::debug(QStringLiteral("Look ") + folder + QStringLiteral(" files=") +
                     QString::number(candidates.size()));
    return candidates;
}

void FolderCompressor::compressAgain() {
    queue_.post([this] {
        redoRequested_ = true;
        planner_.reset();  // the next scan lists the whole folder
        scheduleScan();
    });
}

void FolderCompressor::scan() {
    if (lifecycle_.isCancellationRequested() || !context_.watchDirectory) return;
    bool listing = false;
    const QStringList candidates = candidatesToLookAt(*context_.watchDirectory, listing);
    // A requested pass goes over the whole folder (the planner lists after a request).
    const bool redo = redoRequested_ && listing;
    const struct EndRedo {
        EngineContext& context;
        ~EndRedo() { context.redo = false; }
    } endRedo{context_};
    context_.redo = redo;
    if (redo) takeAsSettled(context_, candidates);
    for (const QString& file : candidates) {
        if (lifecycle_.isCancellationRequested()) return;
        if (shouldSkip(context_, timing_, file)) continue;
        planner_.lookAgain(file);
        if (!processCandidate(file)) return;
        runUserRequests();
    }
    if (redo) redoRequested_ = false;
}

void FolderCompressor::postUserRequest(std::function<void()> request) {
    {
        const std::lock_guard lock(userRequestsMutex_);
        userRequests_.push_back(std::move(request));
    }
    queue_.post([this] { runUserRequests(); });
}

void FolderCompressor::runUserRequests() {
    for (;;) {
        std::function<void()> request;
        {
            const std::lock_guard lock(userRequestsMutex_);
            if (userRequests_.empty()) return;
            request = std::move(userRequests_.front());
            userRequests_.erase(userRequests_.begin());
        }
        request();
    }
}

void FolderCompressor::takeAsSettled(EngineContext& context, const QStringList& files) const {
    const auto settledSince = EngineClock::now() - timing_.writeStability;
    for (const QString& file : files) {
        if (const auto signature = fileSignature(file))
            context.files.noteSeenSince(standardizedPath(file), *signature, settledSince);
    }
}

bool FolderCompressor::processCandidate(const QString& file) {
    context_.stats.active = 1;
    context_.stats.progress = 0;
    context_.sendStats();
    const BatchFileResult outcome = runCandidate(context_, file);
    if (outcome.outcome == BatchFileResult::Outcome::cancelled) return false;  // stop() resets
    if (outcome.outcome != BatchFileResult::Outcome::failed &&
        outcome.outcome != BatchFileResult::Outcome::skipped) {
        context_.setProgress(100);
        QThread::msleep(static_cast<unsigned long>(timing_.restAfterFile.count()));
    }
    context_.stats.active = 0;
    context_.stats.progress.reset();
    context_.sendStats();
    return true;
}

BatchFileResult FolderCompressor::runCandidate(EngineContext& context, const QString& file) {
    using Outcome = BatchFileResult::Outcome;
    BatchFileResult outcome{file, Outcome::skipped, 0, {}, {}};
    try {
        const FolderCompressionResult result = processor_(context, file);
        NativeLog::write(QStringLiteral("Processed ") + fileName(file) + QStringLiteral(" wrote=") +
                         (result.didWrite ? QStringLiteral("true") : QStringLiteral("false")) +
                         QStringLiteral(" saved=") + QString::number(result.savedBytes));
        if (result.didWrite) {
            context.stats.done += 1;
            context.stats.savedBytes += std::max<std::int64_t>(result.savedBytes, 0);
            outcome.outcome = Outcome::compressed;
            outcome.savedBytes = result.savedBytes;
            if (result.historyEntry) outcome.output = result.historyEntry->outputURL;
        } else if (result.historyEntry &&
                   result.historyEntry->status == CompressionHistoryStatus::alreadyOptimal) {
            outcome.outcome = Outcome::alreadyOptimal;
        } else {
            outcome.outcome = Outcome::skipped;
            outcome.reason = result.nothingDoneReason;
        }
        if (result.historyEntry) context.sendHistory(*result.historyEntry);
    } catch (const FolderCompressorControlError& error) {
        if (error.kind() == FolderCompressorControlError::cancelled) {
            NativeLog::write(QStringLiteral("Processing cancelled ") + fileName(file));
            outcome.outcome = Outcome::cancelled;
            outcome.reason = error.reason();
            return outcome;
        }
        context.files.forgetVersion(standardizedPath(file));
        NativeLog::write(QStringLiteral("Source changed during processing; retry deferred ") +
                         fileName(file));
        outcome.reason = error.reason();
    } catch (const std::exception& error) {
        outcome.outcome = Outcome::failed;
        outcome.reason = reportFailure(context, file, error);
    }
    return outcome;
}

Message FolderCompressor::reportFailure(EngineContext& context, const QString& file,
                                        const std::exception& error) {
    // A broken file fails once per version, so it cannot flood the history, the error count and
    // the machine; a failure that comes back on a retry is only logged.
    const Message reason = failureReason(error, file);
    const bool first = rememberFailure(context, file, error, reason, timing_.fullScan);
    NativeLog::write(QStringLiteral("Process error ") + file + QStringLiteral(": ") +
                     errorDescription(error) + (first ? QString() : QStringLiteral(" (again)")));
    if (!first) return reason;
    context.stats.errors += 1;
    context.sendEvent(CompressionNotificationEvent::processingFailed(file, reason));
    if (!context.callbacks.onHistory) return reason;
    CompressionHistoryEntry entry;
    entry.id = QUuid::createUuid();
    entry.date = QDateTime::currentDateTimeUtc();
    entry.sourceURL = file;
    try {
        entry.originalBytes = fileSize(file);
    } catch (const FileSystemError&) {
        // The size stays unknown.
    }
    entry.status = CompressionHistoryStatus::failed;
    entry.reason = reason;
    context.sendHistory(entry);
    return reason;
}

namespace {

// The raw bytes of a name for the log: printable ASCII as it is, every other byte as \xNN.
QString escapedName(const QByteArray& rawName) {
    QString shown;
    for (const char byte : rawName) {
        const auto value = static_cast<unsigned char>(byte);
        if (value >= 0x20 && value < 0x7f)
            shown += QLatin1Char(byte);
        else
            shown += QStringLiteral("\\x%1").arg(value, 2, 16, QLatin1Char('0'));
    }
    return shown;
}

}  // namespace

void FolderCompressor::reportUndecodableNameIfNeeded(const QString& folder,
                                                     const QByteArray& rawName,
                                                     const FileSignature& signature) {
    if (!supportedExtensions.contains(lowerExtension(QString::fromUtf8(rawName)))) return;
    // Keyed by the name's escaped form, which, unlike its lossy text form, is unique.
    const QString key = folder + QLatin1Char('/') + escapedName(rawName);
    if (!context_.files.noteUnsupported(key, signature)) return;
    NativeLog::write(QStringLiteral("Unsupported file name (not valid UTF-8) ") +
                     escapedName(rawName));
    context_.sendEvent(CompressionNotificationEvent::unsupportedFile(folder + QLatin1Char('/') +
                                                                     QString::fromUtf8(rawName)));
}

void FolderCompressor::reportUnsupportedIfNeeded(const QString& file) {
    if (!unsupportedDropExtensions.contains(lowerExtension(file))) return;
    const auto signature = fileSignature(file);
    if (!signature) return;
    if (!context_.files.noteUnsupported(standardizedPath(file), *signature)) return;
    NativeLog::write(QStringLiteral("Unsupported file ") + fileName(file));
    context_.sendEvent(CompressionNotificationEvent::unsupportedFile(file));
}

}  // namespace velt
