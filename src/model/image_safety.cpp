#include "model/image_safety.h"

#include "model/constants.h"

namespace velt {
namespace {

QString describe(ImageSafetyError::Kind kind, std::int64_t width, std::int64_t height) {
    if (kind == ImageSafetyError::invalidDimensions)
        return QStringLiteral("The image has invalid dimensions.");
    return QStringLiteral("The image is too large to process safely (%1×%2).")
        .arg(width)
        .arg(height);
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

Message ImageSafetyError::reason() const {
    if (kind_ == invalidDimensions) return {Text::imageInvalidDimensions, {}};
    return {Text::imageTooLarge, {QString::number(width_), QString::number(height_)}};
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

}  // namespace velt
