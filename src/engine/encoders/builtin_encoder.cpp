#include "engine/encoders/builtin_encoder.h"

#include "engine/core/errors.h"
#include "engine/encoders/quality_scale.h"
#include "imageio/image_io.h"

#include <QFile>
#include <functional>
#include <utility>

namespace velt {
namespace {

// JPEG has no alpha: transparent areas become white, as a viewer would show them on paper.
void flattenOntoWhite(imageio::Bitmap& image) {
    for (std::size_t i = 0; i + 3 < image.rgba.size(); i += 4) {
        const unsigned alpha = image.rgba[i + 3];
        for (std::size_t c = 0; c < 3; ++c)
            image.rgba[i + c] = static_cast<std::uint8_t>(
                (image.rgba[i + c] * alpha + 255 * (255 - alpha) + 127) / 255);
        image.rgba[i + 3] = 255;
    }
    image.alphaInfo = imageio::AlphaInfo::noneSkipLast;
}

bool needsFlattening(const imageio::Bitmap& image, ImageFormat format) {
    return format == ImageFormat::jpeg && imageio::hasAlphaChannel(image.alphaInfo);
}

// Runs the built-in encoder: its failures become FileSystemError, and nothing stays behind.
void runBuiltInEncoder(const QString& destination, ImageFormat format,
                       const std::function<void()>& encode) {
    try {
        encode();
    } catch (const imageio::ImageIOError& error) {
        QFile::remove(destination);
        const bool unsupported = error.code() == imageio::ImageIOError::unsupportedFormat;
        throw FileSystemError(
            unsupported ? FileSystemError::writeUnsupportedScheme : FileSystemError::writeUnknown,
            QString::fromUtf8(error.what()),
            unsupported ? Message{Text::formatNotWritable, {fileExtension(format).toUpper()}}
                        : error.reason());
    }
}

}  // namespace

void writeImageWithImageIO(const QString& destination, const imageio::Bitmap& image,
                           ImageFormat format, const QualitySettings& qualities,
                           const imageio::ImageMetadata& metadata) {
    // Only a transparent image is copied (flattened): a photo's raster is the largest block here.
    if (needsFlattening(image, format))
        return writeImageWithImageIO(destination, imageio::Bitmap(image), format, qualities,
                                     metadata);
    runBuiltInEncoder(destination, format, [&] {
        imageio::encodeImage(image, format, encoderQuality(format, qualities.quality(format)),
                             destination, metadata);
    });
}

void writeImageWithImageIO(const QString& destination, imageio::Bitmap&& image, ImageFormat format,
                           const QualitySettings& qualities,
                           const imageio::ImageMetadata& metadata) {
    if (needsFlattening(image, format)) flattenOntoWhite(image);
    runBuiltInEncoder(destination, format, [&] {
        imageio::encodeImage(std::move(image), format,
                             encoderQuality(format, qualities.quality(format)), destination,
                             metadata);
    });
}

}  // namespace velt
