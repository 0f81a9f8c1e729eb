#include "engine/pipeline/output_naming.h"

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

QString outputPath(const AppConfig& config, const QString& source, ImageFormat sourceFormat,
                   ImageFormat target) {
    const bool keep = config.originalPolicy == OriginalPolicy::keep;
    if (!keep && target == sourceFormat) return source;
    return siblingPath(source, baseName(source) + (keep ? compressedFileSuffix : QString()) +
                                   QLatin1Char('.') + fileExtension(target));
}

std::optional<QString> predictedOutputURL(const AppConfig& config, const QString& source) {
    const auto sourceFormat =
        imageFormatFromFileExtension(splitFileName(fileNameOf(source)).extension);
    if (!sourceFormat) return std::nullopt;
    ImageFormat automaticChoice = *sourceFormat;
    if (config.formatStrategy == FormatStrategy::automatic && !canWrite(*sourceFormat))
        automaticChoice =
            isNativeWritable(ImageFormat::avif) ? ImageFormat::avif : ImageFormat::jpeg;
    return outputPath(config, source, *sourceFormat,
                      targetFormat(config.formatStrategy, automaticChoice));
}

void removeStaleCompressedOutputs(EngineContext& context, const QString& source,
                                  const QString& keeping, const QSet<QString>* onlyAmong) {
    if (context.config.originalPolicy != OriginalPolicy::keep) return;
    static const char* const extensions[] = {"jpg", "jpeg", "png", "webp", "avif", "heic", "heif"};
    const QString kept = standardizedPath(keeping);
    for (const char* extension : extensions) {
        const QString name =
            baseName(source) + compressedFileSuffix + QLatin1Char('.') + QLatin1String(extension);
        if (onlyAmong && !onlyAmong->contains(name)) continue;
        const QString stale = siblingPath(source, name);
        const QString key = standardizedPath(stale);
        if (key == kept) continue;
        const QByteArray encoded = QFile::encodeName(stale);
        if (::access(encoded.constData(), F_OK) != 0 && errno == ENOENT) continue;
        if (::unlink(encoded.constData()) != 0) {
            NativeLog::write(QStringLiteral("Could not remove stale output ") + stale +
                             QStringLiteral(": ") + QString::fromLocal8Bit(std::strerror(errno)));
            continue;
        }
        context.processedSignatures.erase(key);
        context.ownWrites.erase(key);
        context.recentWrites.erase(key);
        NativeLog::write(QStringLiteral("Removed stale output ") + name);
    }
}

bool existingOutputIsFresh(const AppConfig& config, const QString& source, const QString& output) {
    if (config.originalPolicy != OriginalPolicy::keep) return false;
    if (standardizedPath(source) == standardizedPath(output)) return false;
    const auto outputSignature = fileSignature(output);
    if (!outputSignature || outputSignature->size <= 0) return false;
    const auto sourceModified = modificationTime(source);
    if (!sourceModified) return false;
    return outputSignature->modifiedAt >= *sourceModified;
}

}  // namespace velt
