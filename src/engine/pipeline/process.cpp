#include "engine/pipeline/process.h"

#include "engine/core/engine_timing.h"
#include "engine/core/errors.h"
#include "engine/core/image_safety.h"
#include "engine/install/file_operations.h"
#include "engine/install/output_marker.h"
#include "engine/install/safe_install.h"
#include "engine/pipeline/image_writer.h"
#include "engine/pipeline/output_naming.h"
#include "engine/pipeline/plan.h"
#include "engine/pipeline/redo.h"
#include "imageio/image_io.h"
#include "model/file_url.h"
#include "model/native_log.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QUuid>

namespace velt {
namespace {

// The temporary output is removed on every way out of processing, and so is the animation.
class ProcessingScope {
  public:
    explicit ProcessingScope(EngineContext& context) : context_(context) {}
    ~ProcessingScope() {
        context_.smoothProgressTimer.reset();
        if (!temp_.isEmpty()) QFile::remove(temp_);
    }
    ProcessingScope(const ProcessingScope&) = delete;
    ProcessingScope& operator=(const ProcessingScope&) = delete;
    void removeOnExit(const QString& temp) { temp_ = temp; }

  private:
    EngineContext& context_;
    QString temp_;
};

CompressionHistoryEntry historyEntry(const QString& source, const QString& output,
                                     std::int64_t originalBytes, std::int64_t outputBytes,
                                     CompressionHistoryStatus status) {
    CompressionHistoryEntry entry;
    entry.id = QUuid::createUuid();
    entry.date = QDateTime::currentDateTimeUtc();
    entry.sourceURL = source;
    entry.outputURL = output;
    entry.originalBytes = originalBytes;
    entry.outputBytes = outputBytes;
    entry.status = status;
    return entry;
}

QString fileNameOf(const QString& path) {
    return path.mid(path.lastIndexOf(QLatin1Char('/')) + 1);
}

void rememberSignature(EngineContext& context, const QString& path) {
    if (const auto signature = fileSignature(path))
        context.files.markHandled(standardizedPath(path), *signature);
}

// An empty file is usually still being written; it is looked at again once it changes.
FolderCompressionResult leaveEmptyFile(EngineContext& context, const QString& file) {
    rememberSignature(context, file);
    NativeLog::write(QStringLiteral("Empty file left alone ") + fileNameOf(file));
    FolderCompressionResult result;
    result.nothingDoneReason = Message{Text::skippedEmptyFile, {}};
    return result;
}

// A file this program wrote: compressing it again would only lose quality, whatever the
// settings now and whatever the registry remembers (it may have been lost with a kill or an
// unwritable data folder).
FolderCompressionResult settleOwnOutput(EngineContext& context, const QString& file,
                                        const OutputMarker& marker) {
    rememberSignature(context, file);
    if (marker.source == standardizedPath(file)) {
        context.rememberProcessed(file, ProcessedDecision::compressed);
    } else if (!context.processedRegistry->findByOutput(standardizedPath(file))) {
        // The output of another source: it joins that source's record.
        auto record = context.processedRegistry->find(marker.source);
        if (!record) record = context.recordOf(marker.source, ProcessedDecision::compressed);
        if (!record) record = ProcessedFileRecord{};  // the source was converted away
        record->output = standardizedPath(file);
        record->outputFingerprint = marker.output;
        context.remember(marker.source, *record);
    }
    NativeLog::write(QStringLiteral("Own output recognised ") + fileNameOf(file));
    FolderCompressionResult result;
    result.nothingDoneReason = Message{Text::skippedOwnOutput, {}};
    return result;
}

// Compressing again, an output whose original has no verified backup stays as it is.
FolderCompressionResult leaveWithoutBackup(EngineContext& context, const QString& file) {
    rememberSignature(context, file);
    FolderCompressionResult result;
    result.nothingDoneReason = Message{Text::skippedNoBackup, {}};
    return result;
}

// The output's name was free (or held the engine's own output of this source) when it was chosen;
// a file that appeared there while the image was being encoded is someone else's and stays.
void requireOutputNameStillOurs(const EngineContext& context, const QString& file,
                                const QString& output) {
    if (standardizedPath(output) == standardizedPath(file) || !pathExists(output) ||
        isOwnOutputOf(context, output, file))
        return;
    throw FileSystemError(FileSystemError::writeUnknown,
                          QStringLiteral("“%1” appeared while the image was being compressed; it "
                                         "was left alone")
                              .arg(fileNameOf(output)),
                          Message{Text::outputNameAppeared, {fileNameOf(output)}});
}

// A file that cannot be decoded while it is still changing (a copy in progress when a batch
// runs) is being written, not damaged: it changed during the decode, or it ends early and was
// written to within the time the watcher waits for a file to hold still.
ImagePlan planUnlessBeingWritten(const AppConfig& config, const QString& file) {
    const auto before = fileSignature(file);
    try {
        return makePlan(config, file);
    } catch (const FileSystemError& error) {
        if (error.code() != FileSystemError::readCorruptFile) throw;
        const auto after = fileSignature(file);
        const bool cutShort = error.reason().id == Text::fileTruncated;
        const bool changing = !before || !after || !(*before == *after) ||
                              (cutShort && std::chrono::system_clock::now() - after->modifiedAt <
                                               writeStabilityInterval);
        if (!changing) throw;
        throw FileSystemError(FileSystemError::readCorruptFile,
                              error.description() + QStringLiteral(" (still being written)"),
                              Message{Text::fileStillBeingWritten, {}});
    }
}

// The finished temporary file says, before it is installed, that this program made it.
void markAsOwnOutput(const EngineContext& context, const QString& file, const QString& temp,
                     const std::optional<SourceVersion>& version) {
    const auto fingerprint = contentFingerprint(temp);
    if (!fingerprint) return;
    writeOutputMarker(temp, {context.processingSettingsKey(), standardizedPath(file),
                             version ? version->digest : QByteArray(), *fingerprint});
}

bool isAnimatedImage(const QString& file) {
    try {
        return imageio::isAnimated(file);
    } catch (const imageio::ImageIOError&) {
        return false;  // unreadable: planning reports it
    }
}

// An animation keeps all its frames: it is left as it is and reported once per version.
FolderCompressionResult leaveAnimation(EngineContext& context, const QString& file) {
    rememberSignature(context, file);
    context.rememberProcessed(file, ProcessedDecision::leftAnimated);
    NativeLog::write(QStringLiteral("Animated image left as it is ") + fileNameOf(file));
    context.sendEvent(CompressionNotificationEvent::animatedImage(file));
    FolderCompressionResult result;
    result.nothingDoneReason = Message{Text::skippedAnimated, {}};
    return result;
}

// The source is already represented by a fresh compressed sibling.
FolderCompressionResult settleWithFreshOutput(EngineContext& context, const QString& file,
                                              const QString& output) {
    rememberSignature(context, file);
    rememberSignature(context, output);
    if (auto record = context.recordOf(file, ProcessedDecision::existingOutputFresh)) {
        record->output = standardizedPath(output);
        // Only an output the engine wrote for this source stays its own to replace later.
        if (isOwnOutputOf(context, output, file))
            record->outputFingerprint = contentFingerprint(output);
        context.remember(file, *record);
    }
    context.setProgress(100);
    FolderCompressionResult result;
    result.nothingDoneReason = Message{Text::skippedOutputFresh, {}};
    return result;
}

FolderCompressionResult settleAlreadyOptimal(EngineContext& context, const QString& file,
                                             const QString& temp, std::int64_t size) {
    QFile::remove(temp);
    rememberSignature(context, file);
    context.rememberProcessed(file, ProcessedDecision::alreadyOptimal);
    context.sendEvent(CompressionNotificationEvent::alreadyOptimal(file));
    context.setProgress(100);
    return {false,
            0,
            historyEntry(file, file, size, size, CompressionHistoryStatus::alreadyOptimal),
            {}};
}

void install(EngineContext& context, const QString& file, const QString& temp,
             const QString& output, const std::optional<SourceVersion>& version) {
    if (context.config.originalPolicy == OriginalPolicy::keep) {
        replaceOutputFile(temp, output);
        return;
    }
    if (!version)
        throw FileSystemError(FileSystemError::writeUnknown,
                              QStringLiteral("The original cannot be replaced safely."),
                              Message{Text::cannotReplaceSafely, {}});
    if (standardizedPath(output) == standardizedPath(file))
        replaceOriginalSafely(temp, file, *version);
    else
        replaceConvertedOriginalSafely(temp, output, file, *version);
}

// One record for the source: for an install in place it describes the output now under its
// name; otherwise the source (`before`, read before the install: a converted source is gone)
// with the output written for it, whose content makes it the engine's own to replace or remove
// later.
void recordInstalled(EngineContext& context, const QString& file, const QString& output,
                     std::optional<ProcessedFileRecord> before,
                     const std::optional<QString>& backup, const QByteArray& backupDigest) {
    const QString sourceKey = standardizedPath(file);
    const QString outputKey = standardizedPath(output);
    if (context.config.originalPolicy == OriginalPolicy::keep || outputKey == sourceKey) {
        rememberSignature(context, file);
    } else {
        // The source's name is gone: it was replaced by a file of another name.
        context.files.forgetVersion(sourceKey);
    }
    const auto now = EngineClock::now();
    if (const auto signature = fileSignature(output)) {
        context.files.markHandled(outputKey, *signature);
        context.files.noteRecentWrite(outputKey, RecentWrite{now, *signature});
    }
    auto record = outputKey == sourceKey ? context.recordOf(output, ProcessedDecision::compressed)
                                         : std::move(before);
    if (record) {
        if (outputKey != sourceKey) {
            record->output = outputKey;
            record->outputFingerprint = contentFingerprint(output);
        }
        record->backup = backup;
        record->backupDigest = backup ? backupDigest : QByteArray();
        context.remember(file, *record);
    }
    std::int64_t outputSize = 0;
    try {
        outputSize = fileSize(output);
    } catch (const FileSystemError&) {
        // An unreadable size is recorded as 0; the fingerprint still identifies the file.
    }
    context.files.noteOwnWrite(outputKey, OwnWrite{outputSize, contentFingerprint(output), now});
}

}  // namespace

FolderCompressionResult process(EngineContext& context, const QString& file) {
    ProcessingScope scope(context);
    context.checkpoint();
    context.setProgress(5);
    // A file this program wrote is never encoded again, under any settings, and a source whose
    // output stands is not redone: settled before a single pixel is decoded.
    if (const auto marker = readOutputMarker(file)) {
        if (!context.redo) return settleOwnOutput(context, file, *marker);
        // Compressed again from the original, put back from its backup first.
        const auto original = restoreOriginal(context, file, *marker);
        if (!original) return leaveWithoutBackup(context, file);
        return process(context, *original);
    }
    if (const auto output = freshOutputOf(context, file); output && !context.redo)
        return settleWithFreshOutput(context, file, *output);
    if (isAnimatedImage(file)) return leaveAnimation(context, file);
    std::optional<SourceVersion> version;
    if (context.config.originalPolicy == OriginalPolicy::replace) version = sourceVersion(file);
    const std::int64_t size = version ? version->signature.size : fileSize(file);
    if (size <= 0) return leaveEmptyFile(context, file);

    context.setProgress(15);
    ImagePlan plan = planUnlessBeingWritten(context.config, file);
    context.checkpoint();

    context.setProgress(35);
    const QString output = outputPath(context, file, plan.source, plan.target);
    removeStaleCompressedOutputs(context, file, output);
    if (!context.redo && existingOutputIsFresh(context.config, file, output))
        return settleWithFreshOutput(context, file, output);

    const QString temp = tempURL(output);
    QFile::remove(temp);
    scope.removeOnExit(temp);
    if (!QDir().mkpath(QFileInfo(temp).absolutePath()))
        throw FileSystemError(FileSystemError::writeNoPermission,
                              QStringLiteral("Cannot create the folder of ") + temp);

    context.setProgress(55);
    context.startSmoothProgress(55, 88, estimatedEncodingSeconds(plan.target, size));
    writeImage(context, file, temp, plan);
    context.smoothProgressTimer.reset();
    context.checkpoint();

    context.setProgress(88);
    const std::int64_t outputSize = validateTemporaryFile(temp);
    context.setProgress(94);
    if (outputSize >= size && plan.source == plan.target)
        return settleAlreadyOptimal(context, file, temp, size);
    context.checkpoint();

    std::optional<QString> backupCopy;
    if (version) {
        if (context.callbacks.onBeforeDestructiveInstallForTesting)
            context.callbacks.onBeforeDestructiveInstallForTesting(file);
        requireSourceUnchanged(file, *version);
        backupCopy = backup(file, *version, context.watchDirectory);
        context.processedRegistry->rememberBackup(standardizedPath(*backupCopy),
                                                  version->signature.size);
        context.checkpoint();
    }
    requireOutputNameStillOurs(context, file, output);
    markAsOwnOutput(context, file, temp, version);
    // The output sorts where the photo did. Freshness compares the output's date with the
    // source's ("not earlier"), which an equal date passes; the maps and the registry record
    // what is read after the install, dates included.
    takeOverDates(file, temp);
    takeOverAccess(file, temp);  // a private photo stays private (last: it may forbid writing)
    // A requested conversion is installed even when it is larger: the user asked for the format.
    auto before = context.recordOf(file, ProcessedDecision::compressed);
    install(context, file, temp, output, version);
    recordInstalled(context, file, output, std::move(before), backupCopy,
                    version ? version->digest : QByteArray());
    context.setProgress(100);
    return {true,
            size - outputSize,
            historyEntry(file, output, size, outputSize, CompressionHistoryStatus::compressed),
            {}};
}

}  // namespace velt
