#include "engine/encoders/builtin_encoder.h"

#include "engine/core/errors.h"
#include "engine/encoders/quality_scale.h"
#include "imageio/image_io.h"

#include <QFile>

namespace velt {
namespace {

// JPEG has no alpha: transparent areas become white, as a viewer would show them on paper.
imageio::Bitmap flattenedOntoWhite(const imageio::Bitmap& image) {
    imageio::Bitmap flat = image;
    for (std::size_t i = 0; i + 3 < flat.rgba.size(); i += 4) {
        const unsigned alpha = flat.rgba[i + 3];
        for (std::size_t c = 0; c < 3; ++c)
            flat.rgba[i + c] = static_cast<std::uint8_t>(
                (flat.rgba[i + c] * alpha + 255 * (255 - alpha) + 127) / 255);
        flat.rgba[i + 3] = 255;
    }
    flat.alphaInfo = imageio::AlphaInfo::noneSkipLast;
    return flat;
}

}  // namespace

void writeImageWithImageIO(const QString& destination, const imageio::Bitmap& image,
                           ImageFormat format, const QualitySettings& qualities,
                           const imageio::ImageMetadata& metadata) {
    const bool flatten = format == ImageFormat::jpeg && imageio::hasAlphaChannel(image.alphaInfo);
    try {
        imageio::encodeImage(flatten ? flattenedOntoWhite(image) : image, format,
                             encoderQuality(format, qualities.quality(format)), destination,
                             metadata);
    } catch (const imageio::ImageIOError& error) {
        QFile::remove(destination);
        throw FileSystemError(error.code() == imageio::ImageIOError::unsupportedFormat
                                  ? FileSystemError::writeUnsupportedScheme
                                  : FileSystemError::writeUnknown,
                              QString::fromUtf8(error.what()));
    }
}

}  // namespace velt
