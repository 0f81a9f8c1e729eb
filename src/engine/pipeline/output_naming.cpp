#include "engine/pipeline/output_naming.h"

#include "engine/core/errors.h"
#include "engine/install/file_operations.h"
#include "engine/install/output_marker.h"
#include "engine/pipeline/can_write.h"
#include "model/constants.h"
#include "model/file_url.h"
#include "model/native_log.h"

#include <unistd.h>
#include <QFile>
#include <cerrno>
#include <cstring>

namespace velt {
namespace {

// Far more same-named outputs than any folder holds; past it something is wrong.
constexpr int maximumNameAttempts = 1000;

// Plain string work: these run for every settled file on every scan.
QString fileNameOf(const QString& path) {
    return path.mid(path.lastIndexOf(QLatin1Char('/')) + 1);
}

QString siblingPath(const QString& source, const QString& fileName) {
    return source.left(source.lastIndexOf(QLatin1Char('/')) + 1) + fileName;
}

QString baseName(const QString& source) {
    return splitFileName(fileNameOf(source)).base;
}

// The "_veltcompressed" sibling paths of `source`, one per image extension.
QStringList compressedSiblings(const QString& source) {
    QStringList siblings;
    for (const char* extension : {"jpg", "jpeg", "png", "webp", "avif", "heic", "heif"})
        siblings << siblingPath(source, baseName(source) + compressedFileSuffix + QLatin1Char('.') +
                                            QLatin1String(extension));
    return siblings;
}

// The n-th name tried for an output: n = 1 is the plain name, later ones carry "-n".
QString candidateName(const QString& base, int n, bool keep, ImageFormat target) {
    QString tail = n > 1 ? QLatin1Char('-') + QString::number(n) : QString();
    if (keep) tail += compressedFileSuffix;
    tail += QLatin1Char('.') + fileExtension(target);
    return fittedFileName(base, tail);
}

}  // namespace

ImageFormat targetFormat(FormatStrategy strategy, ImageFormat automaticChoice) {
    switch (strategy) {
        case FormatStrategy::automatic:
            return automaticChoice;
        case FormatStrategy::jpeg:
            return ImageFormat::jpeg;
        case FormatStrategy::png:
            return ImageFormat::png;
        case FormatStrategy::webp:
            return ImageFormat::webp;
        case FormatStrategy::avif:
            return ImageFormat::avif;
        case FormatStrategy::heic:
            return ImageFormat::heic;
    }
    return automaticChoice;
}

// The source an existing output was written for, when the registry records it and the file
// still holds what was written; nothing for anyone else's file.
std::optional<QString> writtenFor(const EngineContext& context, const QString& output) {
    // Only a regular file is ever the engine's output: a link under its name is someone else's.
    if (!isRegularFile(output)) return std::nullopt;
    if (const auto owner = context.processedRegistry->findByOutput(standardizedPath(output));
        owner && owner->second.outputFingerprint &&
        contentFingerprint(output) == owner->second.outputFingerprint)
        return owner->first;
    // The registry may have lost it; the file's own marker still tells.
    if (const auto marker = readOutputMarker(output)) return marker->source;
    return std::nullopt;
}

bool isOwnOutputOf(const EngineContext& context, const QString& output, const QString& source) {
    return writtenFor(context, output) == standardizedPath(source);
}

QString outputPath(const EngineContext& context, const QString& source, ImageFormat sourceFormat,
                   ImageFormat target) {
    const bool keep = context.config.originalPolicy == OriginalPolicy::keep;
    if (!keep && target == sourceFormat) return source;
    const QString base = baseName(source);
    for (int n = 1; n <= maximumNameAttempts; ++n) {
        const QString candidate = siblingPath(source, candidateName(base, n, keep, target));
        if (standardizedPath(candidate) == standardizedPath(source)) continue;
        if (!pathExists(candidate)) return candidate;
        const auto owner = writtenFor(context, candidate);
        if (owner == standardizedPath(source)) return candidate;
        // A file of unknown origin that is not older than the source settles it untouched
        // (unless the folder is compressed again: then it is only passed over).
        if (n == 1 && keep && !owner && !context.redo &&
            existingOutputIsFresh(context.config, source, candidate))
            return candidate;
    }
    throw FileSystemError(FileSystemError::writeUnknown,
                          QStringLiteral("No free name for the output of ") + source,
                          Message{Text::noFreeOutputName, {}});
}

std::optional<QString> predictedOutputURL(const EngineContext& context, const QString& source) {
    const auto sourceFormat =
        imageFormatFromFileExtension(splitFileName(fileNameOf(source)).extension);
    if (!sourceFormat) return std::nullopt;
    ImageFormat automaticChoice = *sourceFormat;
    if (context.config.formatStrategy == FormatStrategy::automatic && !canWrite(*sourceFormat))
        automaticChoice =
            isNativeWritable(ImageFormat::avif) ? ImageFormat::avif : ImageFormat::jpeg;
    try {
        return outputPath(context, source, *sourceFormat,
                          targetFormat(context.config.formatStrategy, automaticChoice));
    } catch (const FileSystemError&) {
        return std::nullopt;
    }
}

void removeStaleCompressedOutputs(EngineContext& context, const QString& source,
                                  const QString& keeping) {
    if (context.config.originalPolicy != OriginalPolicy::keep) return;
    QStringList stales = compressedSiblings(source);
    const auto sourceRecord = context.processedRegistry->find(standardizedPath(source));
    if (sourceRecord && sourceRecord->output) stales << *sourceRecord->output;

    const QString kept = standardizedPath(keeping);
    for (const QString& stale : stales) {
        const QString key = standardizedPath(stale);
        if (key == kept || !pathExists(stale) || !isOwnOutputOf(context, stale, source)) continue;
        if (::unlink(QFile::encodeName(stale).constData()) != 0) {
            NativeLog::write(QStringLiteral("Could not remove stale output ") + stale +
                             QStringLiteral(": ") + QString::fromLocal8Bit(std::strerror(errno)));
            continue;
        }
        context.files.forgetWrites(key);
        if (sourceRecord && sourceRecord->output == key)
            context.processedRegistry->forgetOutput(standardizedPath(source));
        NativeLog::write(QStringLiteral("Removed stale output ") + fileNameOf(stale));
    }
}

namespace {

bool isNotOlder(const QString& source, const QString& output) {
    if (!isRegularFile(output)) return false;
    const auto outputSignature = fileSignature(output);
    if (!outputSignature || outputSignature->size <= 0) return false;
    const auto sourceModified = modificationTime(source);
    if (!sourceModified) return false;
    return outputSignature->modifiedAt >= *sourceModified;
}

}  // namespace

bool existingOutputIsFresh(const AppConfig& config, const QString& source, const QString& output) {
    if (config.originalPolicy != OriginalPolicy::keep) return false;
    if (standardizedPath(source) == standardizedPath(output)) return false;
    return isNotOlder(source, output);
}

std::optional<QString> freshOutputOf(const EngineContext& context, const QString& source) {
    const QString key = standardizedPath(source);
    // A link where an output would go is never followed, nor taken for an output: said once.
    for (const QString& sibling : compressedSiblings(source))
        if (isSymbolicLink(sibling))
            NativeLog::write(QStringLiteral("Symbolic link ") + fileNameOf(sibling) +
                             QStringLiteral(" is not an output; left alone"));
    if (const auto record = context.processedRegistry->find(key);
        record && record->output && *record->output != key && isNotOlder(source, *record->output))
        return record->output;
    for (const QString& sibling : compressedSiblings(source)) {
        if (!pathExists(sibling)) continue;
        if (const auto marker = readOutputMarker(sibling);
            marker && marker->source == key && isNotOlder(source, sibling))
            return sibling;
    }
    if (const auto predicted = predictedOutputURL(context, source);
        predicted && existingOutputIsFresh(context.config, source, *predicted))
        return predicted;
    return std::nullopt;
}

}  // namespace velt
