// Writing metadata into an encoded JPEG, PNG or WebP file in memory with exiv2 (see metadata.h).
#include "imageio/metadata.h"
#include "imageio/metadata_internal.h"

#include <zlib.h>

#include <cstring>

namespace velt::imageio {
namespace {

QByteArray bigEndian32(std::uint32_t value) {
    const char bytes[4] = {static_cast<char>(value >> 24), static_cast<char>(value >> 16),
                           static_cast<char>(value >> 8), static_cast<char>(value)};
    return QByteArray(bytes, 4);
}

// exiv2 writes EXIF into PNG as ImageMagick's hex text chunk; the eXIf chunk is the standard
// place that browsers and photo libraries read, so it is framed here around exiv2's TIFF bytes,
// right after IHDR (it must precede IDAT).
QByteArray withExifChunk(const QByteArray& png, const QByteArray& exif) {
    constexpr qsizetype signatureBytes = 8;
    constexpr qsizetype ihdrEnd = signatureBytes + 4 + 4 + 13 + 4;
    if (png.size() < ihdrEnd || std::memcmp(png.constData() + signatureBytes + 4, "IHDR", 4) != 0)
        throw MetadataError(QStringLiteral("the PNG does not start with IHDR"));
    const QByteArray typeAndData = QByteArrayLiteral("eXIf") + exif;
    const auto crc =
        ::crc32(::crc32(0, nullptr, 0), reinterpret_cast<const Bytef*>(typeAndData.constData()),
                static_cast<uInt>(typeAndData.size()));
    const QByteArray chunk = bigEndian32(static_cast<std::uint32_t>(exif.size())) + typeAndData +
                             bigEndian32(static_cast<std::uint32_t>(crc));
    return png.left(ihdrEnd) + chunk + png.mid(ihdrEnd);
}

QByteArray written(const QByteArray& image, ImageFormat format,
                   const detail::ParsedMetadata& parsed) {
    auto file = Exiv2::ImageFactory::open(reinterpret_cast<const Exiv2::byte*>(image.constData()),
                                          static_cast<long>(image.size()));
    file->readMetadata();  // what the encoder wrote, the colour profile above all, stays
    file->setExifData(format == ImageFormat::png ? Exiv2::ExifData() : parsed.exif);
    file->setXmpData(parsed.xmp);
    file->setIptcData(parsed.iptc);
    file->writeMetadata();
    Exiv2::BasicIo& io = file->io();
    if (io.open() != 0) throw MetadataError(QStringLiteral("the written image cannot be read"));
    QByteArray result(static_cast<qsizetype>(io.size()), Qt::Uninitialized);
    const auto read = io.read(reinterpret_cast<Exiv2::byte*>(result.data()), io.size());
    io.close();
    if (static_cast<qsizetype>(read) != result.size())
        throw MetadataError(QStringLiteral("the written image cannot be read"));
    return result;
}

}  // namespace

QByteArray withMetadata(const QByteArray& image, ImageFormat format,
                        const ImageMetadata& metadata) {
    if (format != ImageFormat::jpeg && format != ImageFormat::png && format != ImageFormat::webp)
        throw MetadataError(QStringLiteral("HEIC and AVIF take their metadata while encoding"));
    if (metadata.isEmpty()) return image;
    return detail::withExiv2([&] {
        const detail::ParsedMetadata parsed = detail::parse(metadata);
        QByteArray result = written(image, format, parsed);
        if (format == ImageFormat::png && !metadata.exif.isEmpty())
            result = withExifChunk(result, metadata.exif);
        return result;
    });
}

}  // namespace velt::imageio
