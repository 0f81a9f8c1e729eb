#include "engine/core/image_safety.h"

#include "engine/core/errors.h"
#include "engine/core/file_signature.h"
#include "imageio/image_io.h"
#include "model/constants.h"

#include <QFile>

namespace velt {
namespace {

[[noreturn]] void rejectWrittenFile(const QString& path) {
    QFile::remove(path);
    throw FileSystemError(FileSystemError::writeUnknown,
                          QStringLiteral("The file “%1” couldn’t be saved.").arg(path),
                          Message{Text::outputRejected, {}});
}

}  // namespace

std::optional<QByteArray> iccDataForEncoding(const std::optional<imageio::ColorSpace>& colorSpace) {
    if (!colorSpace) return std::nullopt;
    QByteArray profile = imageio::iccProfileToEmbed(*colorSpace);
    if (profile.isEmpty()) return std::nullopt;
    return profile;
}

std::int64_t validateTemporaryFile(const QString& path) {
    const std::int64_t size = fileSize(path);
    if (size < 1) rejectWrittenFile(path);
    return size;
}

std::int64_t validateEncodedImage(const QString& path,
                                  const std::optional<imageio::FrameSize>& expected) {
    const std::int64_t size = validateTemporaryFile(path);
    imageio::FrameSize decoded;
    try {
        decoded = imageio::verifyFirstFrameDecodes(path);
    } catch (const std::exception&) {
        rejectWrittenFile(path);
    }
    const imageio::PhotoMetadata own = imageio::readPhotoMetadata(path, MetadataPolicy::strip);
    if (own.orientation.value_or(1) != 1) {
        QFile::remove(path);
        throw FileSystemError(
            FileSystemError::writeUnknown,
            QStringLiteral("The output says it is to be shown turned (Orientation %1); it was "
                           "discarded.")
                .arg(*own.orientation));
    }
    if (expected && decoded != *expected) {
        QFile::remove(path);
        throw FileSystemError(
            FileSystemError::writeUnknown,
            QStringLiteral("The encoder wrote a %1×%2 image instead of %3×%4; it was discarded.")
                .arg(decoded.width)
                .arg(decoded.height)
                .arg(expected->width)
                .arg(expected->height),
            Message{Text::outputRejected, {}});
    }
    return size;
}

imageio::FrameSize expectedOutputSize(const imageio::Bitmap& image) {
    return {image.width, image.height};
}

}  // namespace velt
