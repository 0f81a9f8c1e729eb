// encodeImage: checks the bitmap, runs the format's encoder into memory and writes the result to
// the destination, removing a partly written file on failure.
#include "imageio/encoders.h"
#include "imageio/image_io.h"

#include <QFile>

#include <limits>

namespace velt::imageio {

namespace {

void checkBitmap(const Bitmap& bitmap) {
    const bool sized = bitmap.width > 0 && bitmap.height > 0 &&
                       bitmap.width <= std::numeric_limits<int>::max() / 4;
    if (!sized ||
        bitmap.rgba.size() != bitmap.rowBytes() * static_cast<std::size_t>(bitmap.height)) {
        throw ImageIOError(ImageIOError::writeFailed,
                           QStringLiteral("The image to encode has invalid dimensions (%1×%2).")
                               .arg(bitmap.width)
                               .arg(bitmap.height));
    }
}

// `owned`: the caller's raster, which HEIC and AVIF take over (otherwise they work on a copy).
QByteArray encodeToMemory(const Bitmap& bitmap, ImageFormat format, int quality,
                          const ImageMetadata& metadata, Bitmap* owned) {
    const QByteArray icc = iccProfileToEmbed(bitmap.colorSpace);
    switch (format) {
        case ImageFormat::jpeg:
            return detail::encodeJPEG(bitmap, quality, icc);
        case ImageFormat::png:
            return detail::encodePNG(bitmap, icc);
        case ImageFormat::heic:
        case ImageFormat::avif:
            return detail::encodeHEIF(owned ? std::move(*owned) : Bitmap(bitmap), format, quality,
                                      icc, metadata, detail::defaultHeifParameters(format));
        case ImageFormat::webp:
            break;
    }
    throw ImageIOError(ImageIOError::unsupportedFormat,
                       QStringLiteral("WebP images are not written by the built-in encoder."));
}

void writeFileReplacing(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        throw ImageIOError(
            ImageIOError::writeFailed,
            QStringLiteral("Could not create “%1”: %2").arg(path, file.errorString()));
    }
    const bool written = file.write(bytes) == bytes.size() && file.flush();
    const QString reason = file.errorString();
    file.close();
    if (!written || file.error() != QFileDevice::NoError) {
        file.remove();
        throw ImageIOError(ImageIOError::writeFailed,
                           QStringLiteral("Could not write “%1”: %2").arg(path, reason));
    }
}

}  // namespace

void encodeImage(const Bitmap& bitmap, ImageFormat format, int quality, const QString& path,
                 const ImageMetadata& metadata) {
    checkBitmap(bitmap);
    writeFileReplacing(path, encodeToMemory(bitmap, format, quality, metadata, nullptr));
}

void encodeImage(Bitmap&& bitmap, ImageFormat format, int quality, const QString& path,
                 const ImageMetadata& metadata) {
    checkBitmap(bitmap);
    writeFileReplacing(path, encodeToMemory(bitmap, format, quality, metadata, &bitmap));
}

}  // namespace velt::imageio
