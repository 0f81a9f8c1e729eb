// decodeFirstFrame: the format is sniffed from the content (never the extension), then the
// format's decoder checks the declared size before it allocates the raster.
#include "imageio/decode_internal.h"

#include <QFileInfo>

namespace velt::imageio {

namespace {

ImageFormat sniffedFormat(const QString& path, const QByteArray& data) {
    const std::optional<ImageFormat> format = sniffFormat(data.left(256));
    if (!format) {
        if (imageFormatFromFileExtension(QFileInfo(path).suffix())) {
            detail::throwCorrupt(
                QStringLiteral("The file is damaged or is not the image its name suggests."));
        }
        throw ImageIOError(ImageIOError::unsupportedFormat,
                           QStringLiteral("The file is not an image in a supported format."));
    }
    return *format;
}

}  // namespace

Bitmap decodeFirstFrame(const QString& path) {
    const QByteArray data = detail::readWholeFile(path);
    switch (sniffedFormat(path, data)) {
        case ImageFormat::jpeg:
            return detail::decodeJpeg(data);
        case ImageFormat::png:
            return detail::decodePng(data);
        case ImageFormat::webp:
            return detail::decodeWebp(data);
        case ImageFormat::avif:
        case ImageFormat::heic:
            return detail::decodeHeif(data);
    }
    throw ImageIOError(ImageIOError::unsupportedFormat,
                       QStringLiteral("The file is not an image in a supported format."));
}

FrameSize verifyFirstFrameDecodes(const QString& path) {
    const QByteArray data = detail::readWholeFile(path);
    switch (sniffedFormat(path, data)) {
        case ImageFormat::jpeg:
            return detail::verifyJpegDecodes(data);
        case ImageFormat::avif:
        case ImageFormat::heic:
            return detail::verifyHeifDecodes(data);
        case ImageFormat::png:
        case ImageFormat::webp:
            break;
    }
    const Bitmap bitmap = decodeFirstFrame(path);
    return {bitmap.width, bitmap.height};
}

}  // namespace velt::imageio
