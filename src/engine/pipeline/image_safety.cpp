#include "engine/pipeline/image_safety.h"

#include "engine/errors.h"
#include "engine/watcher/file_signature.h"
#include "imageio/image_io.h"
#include "model/constants.h"

#include <QFile>

namespace velt {
namespace {

QString describe(ImageSafetyError::Kind kind, std::int64_t width, std::int64_t height) {
    if (kind == ImageSafetyError::invalidDimensions)
        return QStringLiteral("The image has invalid dimensions.");
    return QStringLiteral("The image is too large to process safely (%1×%2).")
        .arg(width)
        .arg(height);
}

[[noreturn]] void rejectWrittenFile(const QString& path) {
    QFile::remove(path);
    throw FileSystemError(FileSystemError::writeUnknown,
                          QStringLiteral("The file “%1” couldn’t be saved.").arg(path));
}

}  // namespace

ImageSafetyError::ImageSafetyError(Kind kind, std::int64_t width, std::int64_t height)
    : std::runtime_error(describe(kind, width, height).toStdString()),
      kind_(kind),
      width_(width),
      height_(height) {}

ImageSafetyError ImageSafetyError::limitExceeded(std::int64_t width, std::int64_t height) {
    return {resourceLimitExceeded, width, height};
}

ImageSafetyError ImageSafetyError::dimensionsInvalid() {
    return {invalidDimensions, 0, 0};
}

QString ImageSafetyError::errorDescription() const {
    return describe(kind_, width_, height_);
}

std::int64_t validatedDecodedRasterByteCount(std::int64_t width, std::int64_t height) {
    if (width < 1 || height < 1) throw ImageSafetyError::dimensionsInvalid();
    std::int64_t pixels = 0;
    std::int64_t bytes = 0;
    if (__builtin_mul_overflow(width, height, &pixels) || __builtin_mul_overflow(pixels, 4, &bytes))
        throw ImageSafetyError::limitExceeded(width, height);
    // Both limits are checked so that either constant can be changed alone.
    if (pixels > maximumDecodedPixelCount || bytes > maximumDecodedRasterBytes)
        throw ImageSafetyError::limitExceeded(width, height);
    return bytes;
}

std::optional<QByteArray> iccDataForEncoding(const std::optional<imageio::ColorSpace>& colorSpace) {
    if (!colorSpace || colorSpace->model != imageio::ColorModel::rgb) return std::nullopt;
    // sRGB is what every output format assumes anyway: embedding it only costs bytes.
    if (colorSpace->name.contains(QLatin1String("srgb"), Qt::CaseInsensitive)) return std::nullopt;
    if (colorSpace->iccData.isEmpty()) return std::nullopt;
    return colorSpace->iccData;
}

std::int64_t validateTemporaryFile(const QString& path) {
    const std::int64_t size = fileSize(path);
    if (size < 1) rejectWrittenFile(path);
    return size;
}

std::int64_t validateEncodedImage(const QString& path) {
    const std::int64_t size = validateTemporaryFile(path);
    try {
        imageio::verifyFirstFrameDecodes(path);
    } catch (const std::exception&) {
        rejectWrittenFile(path);
    }
    return size;
}

}  // namespace velt
