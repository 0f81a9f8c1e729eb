#include "engine/pipeline/plan.h"

#include "engine/core/errors.h"
#include "engine/core/image_safety.h"
#include "engine/pipeline/can_write.h"
#include "engine/pipeline/carry_metadata.h"
#include "engine/pipeline/output_naming.h"
#include "model/file_url.h"

namespace velt {
namespace {

// The decoder's error, with the file's name for the log and what it found for the user (damaged,
// cut short, an unsupported variant).
[[noreturn]] void unreadable(const QString& path, const imageio::ImageIOError& error) {
    const bool unsupported = error.code() == imageio::ImageIOError::unsupportedFormat;
    throw FileSystemError(
        unsupported ? FileSystemError::readUnsupportedScheme : FileSystemError::readCorruptFile,
        QStringLiteral("Cannot read “%1”: %2")
            .arg(path.mid(path.lastIndexOf(QLatin1Char('/')) + 1), QString::fromUtf8(error.what())),
        error.reason());
}

// The automatic strategy keeps the source's format when it can be written.
ImageFormat automaticTarget(ImageFormat source, const imageio::Bitmap& image) {
    if (canWrite(source)) return source;
    if (isNativeWritable(ImageFormat::avif)) return ImageFormat::avif;
    return imageio::hasAlphaChannel(image.alphaInfo) ? ImageFormat::png : ImageFormat::jpeg;
}

}  // namespace

imageio::Bitmap createDisplayOrientedImage(const QString& path, std::optional<int> turn) {
    imageio::Bitmap image = imageio::decodeFirstFrame(path);
    if (!turn || *turn == 1) return image;
    return imageio::applyOrientation(image, *turn);
}

ImagePlan makePlan(const AppConfig& config, const QString& path) {
    imageio::ImageProperties properties;
    try {
        properties = imageio::readProperties(path);
    } catch (const imageio::ImageIOError& error) {
        unreadable(path, error);
    }
    validatedDecodedRasterByteCount(properties.width, properties.height);
    imageio::PhotoMetadata metadata = sourceMetadata(path, config.metadataPolicy);
    std::optional<imageio::Bitmap> image;
    try {
        image = createDisplayOrientedImage(path, metadata.displayTurn);
    } catch (const imageio::ImageIOError& error) {
        unreadable(path, error);
    }

    ImagePlan plan;
    plan.source = properties.format;
    plan.target = targetFormat(config.formatStrategy, automaticTarget(plan.source, *image));
    plan.colorSpace = image->colorSpace.model == imageio::ColorModel::rgb
                          ? image->colorSpace
                          : imageio::sRGBColorSpace();
    plan.iccData = iccDataForEncoding(image->colorSpace);
    plan.image = std::move(*image);
    plan.turned = metadata.displayTurn.value_or(1) != 1;
    plan.metadata = std::move(metadata.carried);
    return plan;
}

}  // namespace velt
