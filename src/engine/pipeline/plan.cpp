#include "engine/pipeline/plan.h"

#include "engine/core/errors.h"
#include "engine/core/image_safety.h"
#include "engine/pipeline/can_write.h"
#include "engine/pipeline/carry_metadata.h"
#include "engine/pipeline/output_naming.h"
#include "model/file_url.h"

namespace velt {
namespace {

[[noreturn]] void corrupt(const QString& path) {
    throw FileSystemError(FileSystemError::readCorruptFile,
                          QStringLiteral("The file “%1” couldn’t be opened because it isn’t in the "
                                         "correct format.")
                              .arg(path.mid(path.lastIndexOf(QLatin1Char('/')) + 1)));
}

// The automatic strategy keeps the source's format when it can be written.
ImageFormat automaticTarget(ImageFormat source, const imageio::Bitmap& image) {
    if (canWrite(source)) return source;
    if (isNativeWritable(ImageFormat::avif)) return ImageFormat::avif;
    return imageio::hasAlphaChannel(image.alphaInfo) ? ImageFormat::png : ImageFormat::jpeg;
}

}  // namespace

std::optional<imageio::Bitmap> createDisplayOrientedImage(const QString& path,
                                                          std::optional<int> turn) {
    imageio::Bitmap image;
    try {
        image = imageio::decodeFirstFrame(path);
    } catch (const imageio::ImageIOError&) {
        return std::nullopt;
    }
    if (!turn || *turn == 1) return image;
    return imageio::applyOrientation(image, *turn);
}

ImagePlan makePlan(const AppConfig& config, const QString& path) {
    imageio::ImageProperties properties;
    try {
        properties = imageio::readProperties(path);
    } catch (const imageio::ImageIOError&) {
        corrupt(path);
    }
    validatedDecodedRasterByteCount(properties.width, properties.height);
    imageio::PhotoMetadata metadata = sourceMetadata(path, config.metadataPolicy);
    auto image = createDisplayOrientedImage(path, metadata.displayTurn);
    if (!image) corrupt(path);

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
