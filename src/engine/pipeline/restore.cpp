#include "engine/pipeline/restore.h"

#include "engine/core/content_fingerprint.h"
#include "engine/core/errors.h"
#include "engine/install/file_operations.h"
#include "engine/install/output_marker.h"
#include "engine/install/safe_install.h"
#include "engine/install/source_version.h"
#include "model/file_url.h"
#include "model/native_log.h"

#include <QDir>
#include <QFileInfo>

namespace velt {

namespace {

Text textOf(RestoreFailure failure) {
    switch (failure) {
        case RestoreFailure::nothingToRestore:
            return Text::restoreNothingToRestore;
        case RestoreFailure::backupMissing:
            return Text::restoreBackupMissing;
        case RestoreFailure::backupChanged:
            return Text::restoreBackupChanged;
        case RestoreFailure::nameTaken:
            return Text::restoreNameTaken;
        case RestoreFailure::copyChanged:
            return Text::restoreCopyChanged;
        case RestoreFailure::originalMissing:
            return Text::restoreOriginalMissing;
    }
    return Text::restoreNothingToRestore;
}

}  // namespace

RestoreError::RestoreError(RestoreFailure failure, const QString& file)
    : std::runtime_error(
          text(AppLanguage::english, textOf(failure), {QFileInfo(file).fileName()}).toStdString()),
      failure_(failure),
      file_(file) {}

Message RestoreError::reason() const {
    return {textOf(failure_), {QFileInfo(file_).fileName()}};
}
namespace {

// What the program did for one source, as far as the registry and the output's marker tell.
struct Compression {
    QString source;
    std::optional<ProcessedFileRecord> record;
    std::optional<QString> output;              // the output's path
    std::optional<ContentFingerprint> written;  // the output's content when it was written
    QByteArray sourceDigest;                    // the replaced original's SHA-256 (marker)
};

Compression locate(const ProcessedFileRegistry& registry, const QString& key) {
    Compression found;
    if (const auto marker = readOutputMarker(key)) {
        found.source = marker->source;
        found.record = registry.find(found.source);
        found.output = key;
    } else if (auto owner = registry.findByOutput(key)) {
        found.source = owner->first;
        found.record = std::move(owner->second);
        found.output = key;
    } else {
        found.source = key;
        found.record = registry.find(key);
        if (found.record && found.record->decision == ProcessedDecision::compressed)
            found.output = found.record->output.value_or(key);
    }
    if (!found.output) return found;
    if (found.record && found.record->decision == ProcessedDecision::compressed)
        found.written = *found.output == found.source ? std::optional(found.record->fingerprint)
                                                      : found.record->outputFingerprint;
    if (const auto marker = readOutputMarker(*found.output);
        marker && marker->source == found.source) {
        found.written = marker->output;
        found.sourceDigest = marker->sourceDigest;
    }
    return found;
}

bool holdsWhatWasWritten(const Compression& compression) {
    return compression.written && isRegularFile(*compression.output) &&
           contentFingerprint(*compression.output) == compression.written;
}

QByteArray digestOrNothing(const QString& path) {
    try {
        return sha256Digest(path);
    } catch (const std::exception&) {
        return {};
    }
}

// Where the backups of `source` are: the watched folder when the file lies in it, else the
// nearest folder above it that holds a backup folder.
std::optional<QString> backupRoot(const QString& source,
                                  const std::optional<QString>& watchDirectory) {
    if (watchDirectory && source.startsWith(*watchDirectory + QLatin1Char('/')))
        return watchDirectory;
    for (QString folder = parentFolder(source); folder.size() > 1; folder = parentFolder(folder))
        if (isDirectory(QDir(folder).filePath(backupDirName))) return folder;
    return std::nullopt;
}

// The backup holding exactly `digest`: the recorded one, else one found by the original's name.
QString verifiedBackup(const Compression& compression, const QByteArray& digest,
                       const std::optional<QString>& watchDirectory) {
    bool recordedChanged = false;
    if (compression.record && compression.record->backup &&
        pathExists(*compression.record->backup)) {
        if (digestOrNothing(*compression.record->backup) == digest)
            return *compression.record->backup;
        recordedChanged = true;
    }
    if (const auto root = backupRoot(compression.source, watchDirectory))
        if (const auto found = findBackup(compression.source, digest, *root)) return *found;
    throw RestoreError(
        recordedChanged ? RestoreFailure::backupChanged : RestoreFailure::backupMissing,
        compression.source);
}

ProcessedFileRecord restoredRecord(const QString& path, const ProcessedFileRecord& base) {
    ProcessedFileRecord record;
    record.decision = ProcessedDecision::restored;
    record.fingerprint = contentFingerprint(path).value_or(ContentFingerprint{});
    record.updatedAt = std::chrono::system_clock::now();
    if (const auto signature = fileSignature(path)) {
        record.resourceIdentifier = signature->resourceIdentifier;
        record.modifiedAt = signature->modifiedAt;
        record.createdAt = signature->attributeModifiedAt;
    }
    record.settingsKey = base.settingsKey;
    record.backup = base.backup;
    record.backupDigest = base.backupDigest;
    return record;
}

RestoreOutcome putBackFromBackup(ProcessedFileRegistry& registry, Compression& compression,
                                 const std::optional<QString>& watchDirectory,
                                 bool besideWhenTaken) {
    const QString& source = compression.source;
    const QByteArray digest = compression.record && !compression.record->backupDigest.isEmpty()
                                  ? compression.record->backupDigest
                                  : compression.sourceDigest;
    if (digest.isEmpty()) throw RestoreError(RestoreFailure::backupMissing, source);
    ProcessedFileRecord record = compression.record.value_or(ProcessedFileRecord{});
    if (record.backupDigest.isEmpty() && compression.record) {
        // Recorded by an earlier version without the hash: the output's marker still had it.
        record.backupDigest = digest;
        registry.remember(source, record);
    }
    const QString backupCopy = verifiedBackup(compression, digest, watchDirectory);
    record.backup = backupCopy;
    record.backupDigest = digest;

    const bool outputOurs = holdsWhatWasWritten(compression);
    QString target = source;
    if (pathExists(source) && !(outputOurs && *compression.output == source)) {
        if (!besideWhenTaken) throw RestoreError(RestoreFailure::nameTaken, source);
        target = restoredBesideName(source);
    }
    const std::optional<SourceVersion> present =
        outputOurs ? std::optional(sourceVersion(*compression.output)) : std::nullopt;
    const QString temp = tempURL(target);
    try {
        copyToNewFile(backupCopy, temp);
        // The copy that goes back is checked itself: a backup changed since it was read is not it.
        if (sha256Digest(temp) != digest) throw RestoreError(RestoreFailure::backupChanged, source);
        if (outputOurs && *compression.output == target)
            replaceOriginalSafely(temp, target, *present);
        else if (outputOurs)
            replaceConvertedOriginalSafely(temp, target, *compression.output, *present);
        else
            moveOrCopyFile(temp, target);  // never over a file that appeared meanwhile
    } catch (...) {
        removeQuietly(temp);
        throw;
    }
    if (target != source) registry.forgetOutput(source);
    registry.remember(target, restoredRecord(target, record));
    NativeLog::write(QStringLiteral("Original restored from its backup ") + target);
    RestoreOutcome outcome{target, std::nullopt, true, fileSize(target)};
    if (outputOurs && *compression.output != target) outcome.removed = compression.output;
    return outcome;
}

// A kept original stays; the compressed copy goes, only while it holds what was written (moved
// aside and checked there, so no writer slips in between).
RestoreOutcome removeKeptCopy(ProcessedFileRegistry& registry, const Compression& compression) {
    const QString& output = *compression.output;
    if (!pathExists(output)) throw RestoreError(RestoreFailure::nothingToRestore, output);
    if (!holdsWhatWasWritten(compression)) throw RestoreError(RestoreFailure::copyChanged, output);
    if (!isRegularFile(compression.source))
        throw RestoreError(RestoreFailure::originalMissing, compression.source);
    const SourceVersion present = sourceVersion(output);
    const QString aside = tempURL(output, replaceFileMarker);
    currentFileOperations().move(output, aside);
    try {
        requireSourceUnchanged(aside, present);
        removeFile(aside);
    } catch (...) {
        if (!pathExists(output)) moveOrCopyFile(aside, output);
        throw;
    }
    registry.remember(
        compression.source,
        restoredRecord(compression.source, compression.record.value_or(ProcessedFileRecord{})));
    NativeLog::write(QStringLiteral("Compressed copy removed ") + output);
    return {compression.source, output, false, fileSize(compression.source)};
}

}  // namespace

RestoreOutcome restoreFile(ProcessedFileRegistry& registry, const QString& file,
                           const std::optional<QString>& watchDirectory, bool besideWhenTaken) {
    const QString key = standardizedPath(file);
    Compression compression = locate(registry, key);
    if (!compression.output) throw RestoreError(RestoreFailure::nothingToRestore, key);
    const bool replaced =
        !compression.sourceDigest.isEmpty() || (compression.record && compression.record->backup);
    if (replaced) return putBackFromBackup(registry, compression, watchDirectory, besideWhenTaken);
    if (*compression.output == compression.source)
        throw RestoreError(RestoreFailure::nothingToRestore, key);
    return removeKeptCopy(registry, compression);
}

CompressionHistoryEntry restoredHistoryEntry(const RestoreOutcome& outcome) {
    CompressionHistoryEntry entry;
    entry.id = QUuid::createUuid();
    entry.date = QDateTime::currentDateTimeUtc();
    entry.sourceURL = outcome.original;
    entry.outputURL = outcome.removed;
    entry.originalBytes = outcome.originalBytes;
    entry.status = CompressionHistoryStatus::restored;
    return entry;
}

QString restoredBesideName(const QString& taken) {
    const FileNameParts parts = splitFileName(QFileInfo(taken).fileName());
    const QString extension =
        parts.extension.isEmpty() ? QString() : QLatin1Char('.') + parts.extension;
    const QDir folder(parentFolder(taken));
    QString candidate;
    for (int n = 1; candidate.isEmpty() || pathExists(candidate); ++n) {
        const QString mark =
            n == 1 ? QStringLiteral(" (restored)") : QStringLiteral(" (restored %1)").arg(n);
        candidate = folder.filePath(fittedFileName(parts.base, mark + extension));
    }
    return candidate;
}

}  // namespace velt
