#include "engine/pipeline/redo.h"

#include "engine/core/errors.h"
#include "engine/install/file_operations.h"
#include "engine/install/safe_install.h"
#include "model/file_url.h"
#include "model/native_log.h"

namespace velt {
namespace {

// The backup recorded for the original, else any backup of it with its SHA-256.
std::optional<QString> verifiedBackup(const EngineContext& context, const OutputMarker& marker) {
    if (const auto record = context.processedRegistry->find(marker.source);
        record && record->backup) {
        try {
            if (sha256Digest(*record->backup) == marker.sourceDigest) return record->backup;
        } catch (const std::exception&) {
            // Gone or unreadable: looked for below.
        }
    }
    return findBackup(marker.source, marker.sourceDigest, *context.watchDirectory);
}

}  // namespace

std::optional<QString> restoreOriginal(EngineContext& context, const QString& output,
                                       const OutputMarker& marker) {
    // Only an original that was replaced has a backup (a kept one needs none).
    if (marker.sourceDigest.isEmpty() || !context.watchDirectory) return std::nullopt;
    const auto backupCopy = verifiedBackup(context, marker);
    if (!backupCopy) {
        NativeLog::write(QStringLiteral("No verified backup of the original of ") + output +
                         QStringLiteral("; left as it is"));
        return std::nullopt;
    }
    const QString original = marker.source;
    const bool inPlace = original == standardizedPath(output);
    if (!inPlace && pathExists(original))
        throw FileSystemError(FileSystemError::writeUnknown,
                              QStringLiteral("“%1” is taken by another file; the original was not "
                                             "put back")
                                  .arg(original));
    const SourceVersion present = sourceVersion(output);
    const QString temp = tempURL(original);
    try {
        copyToNewFile(*backupCopy, temp);
        if (sha256Digest(temp) != marker.sourceDigest)
            throw FolderCompressorControlError(FolderCompressorControlError::sourceChanged);
        if (inPlace)
            replaceOriginalSafely(temp, output, present);
        else
            replaceConvertedOriginalSafely(temp, original, output, present);
    } catch (...) {
        removeQuietly(temp);
        throw;
    }
    context.files.forgetWrites(standardizedPath(output));
    NativeLog::write(QStringLiteral("Original put back from its backup ") + original);
    return original;
}

}  // namespace velt
