#include "engine/pipeline/image_writer.h"

#include "engine/encoders/jpeg_path.h"
#include "engine/encoders/png_path.h"
#include "engine/encoders/quality_scale.h"
#include "engine/encoders/tool_runner.h"
#include "engine/encoders/webp_path.h"
#include "engine/errors.h"
#include "engine/pipeline/carry_metadata.h"
#include "engine/pipeline/image_safety.h"
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

namespace {

// The encoding path of the plan's target; each one leaves a decodable file of the right size.
void encodeWithPathOfTarget(EngineContext& context, const QString& sourceURL,
                            const QString& destination, const ImagePlan& plan) {
    switch (plan.target) {
        case ImageFormat::webp:
            writeWebPImage(context, destination, plan);
            return;
        case ImageFormat::png:
            writePNGImage(context, sourceURL, destination, plan);
            return;
        case ImageFormat::jpeg:
            if (toolURL(QStringLiteral("cjpeg"))) {
                writeJPEGImage(context, destination, plan);
                return;
            }
            break;
        case ImageFormat::avif:
        case ImageFormat::heic:
            break;
    }
    writeImageWithImageIO(destination, plan.image, plan.target, context.config.qualities,
                          plan.metadata);
    // The tool paths check for a stop themselves; the built-in encoder cannot be interrupted.
    context.checkpoint();
    // The tool paths decode what they wrote; the built-in encoders' output is checked here.
    validateEncodedImage(destination, expectedOutputSize(plan.image));
}

}  // namespace

void writeImage(EngineContext& context, const QString& sourceURL, const QString& destination,
                const ImagePlan& plan) {
    context.checkpoint();
    encodeWithPathOfTarget(context, sourceURL, destination, plan);
    writeMetadataInto(destination, sourceURL, plan);
}

}  // namespace velt
