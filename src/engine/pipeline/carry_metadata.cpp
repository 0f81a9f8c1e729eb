#include "engine/pipeline/carry_metadata.h"

#include "engine/core/errors.h"
#include "engine/core/image_plan.h"
#include "engine/core/image_safety.h"
#include "model/native_log.h"

#include <QFile>

namespace velt {
namespace {

void logDropped(const QString& source, const QString& reason) {
    NativeLog::write(QStringLiteral("Metadata dropped from ") +
                     source.mid(source.lastIndexOf(QLatin1Char('/')) + 1) + QStringLiteral(": ") +
                     reason);
}

QByteArray readAll(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw FileSystemError(
            FileSystemError::readUnknown,
            QStringLiteral("Cannot read ") + path + QStringLiteral(": ") + file.errorString());
    return file.readAll();
}

void writeAll(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    const bool written = file.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
                         file.write(bytes) == bytes.size() && file.flush();
    if (!written)
        throw FileSystemError(
            FileSystemError::writeUnknown,
            QStringLiteral("Cannot write ") + path + QStringLiteral(": ") + file.errorString());
}

}  // namespace

imageio::PhotoMetadata sourceMetadata(const QString& source, MetadataPolicy policy) {
    imageio::PhotoMetadata metadata = imageio::readPhotoMetadata(source, policy);
    if (!metadata.dropped.isEmpty()) logDropped(source, metadata.dropped);
    return metadata;
}

void finishEncodedImage(const QString& file, const QString& source, const ImagePlan& plan) {
    std::optional<QString> dropped;
    if (!plan.metadata.isEmpty() && plan.target != ImageFormat::heic &&
        plan.target != ImageFormat::avif) {
        try {
            writeAll(file, imageio::withMetadata(readAll(file), plan.target, plan.metadata));
        } catch (const imageio::MetadataError& error) {
            dropped = QString::fromUtf8(error.what());
        }
    }
    validateEncodedImage(file, expectedOutputSize(plan.image));
    // Only an output that is kept can have lost its metadata; a broken one says nothing of that.
    if (dropped) logDropped(source, *dropped);
}

}  // namespace velt
