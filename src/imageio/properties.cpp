// Header-only reads: the format and the pixel size, without decoding a single pixel. A hostile
// file therefore costs a few small reads. (The orientation is metadata: see metadata_read.cpp.)
#include "imageio/decode_internal.h"

#include <QFileInfo>
#include <array>

namespace velt::imageio {

namespace detail {

namespace {

const std::uint8_t* bytesOf(const QByteArray& data) {
    return reinterpret_cast<const std::uint8_t*>(data.constData());
}

[[noreturn]] void throwCorruptJpeg(const char* why) {
    throwCorrupt(
        QStringLiteral("The file is not a readable JPEG image (%1).").arg(QLatin1String(why)));
}

bool isStartOfFrame(std::uint8_t marker) {
    return marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
}

std::uint32_t pngCrc(const std::uint8_t* data, std::size_t size) {
    static const auto table = [] {
        std::array<std::uint32_t, 256> entries{};
        for (std::uint32_t n = 0; n < 256; ++n) {
            std::uint32_t c = n;
            for (int k = 0; k < 8; ++k) c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
            entries[n] = c;
        }
        return entries;
    }();
    std::uint32_t crc = 0xFFFFFFFFu;
    for (std::size_t i = 0; i < size; ++i) crc = table[(crc ^ data[i]) & 0xFF] ^ (crc >> 8);
    return crc ^ 0xFFFFFFFFu;
}

}  // namespace

// Walks the marker segments up to the start of scan: SOFn carries the size. Broken segment
// lengths mean a damaged file.
HeaderInfo readJpegHeader(const QString& path) {
    HeaderFile file(path);
    return parseJpegHeader(
        [&file](std::int64_t offset, std::int64_t count) { return file.read(offset, count); });
}

HeaderInfo parseJpegHeader(const ByteReader& read) {
    const auto start = read(0, 2);
    if (!start || *start != "\xFF\xD8") throwCorruptJpeg("no start-of-image marker");
    HeaderInfo info;
    bool sawFrame = false;
    std::int64_t pos = 2;
    constexpr int maximumStrayBytes = 4096;
    int strayBytes = 0;
    while (true) {
        const auto marker = read(pos, 2);
        if (!marker) throwCorruptJpeg("the headers end early");
        const auto code = static_cast<std::uint8_t>((*marker)[1]);
        if (static_cast<std::uint8_t>((*marker)[0]) != 0xFF || code == 0x00 || code == 0xFF) {
            // Fill bytes before a marker, or stray bytes between segments: some writers leave
            // them and libjpeg skips them too, but only so many.
            if (++strayBytes > maximumStrayBytes) throwCorruptJpeg("a marker is damaged");
            ++pos;
            continue;
        }
        pos += 2;
        if (code == 0x01 || (code >= 0xD0 && code <= 0xD7)) continue;  // no length field
        if (code == 0xDA || code == 0xD9) break;                       // scan data or the end
        const auto lengthBytes = read(pos, 2);
        if (!lengthBytes) throwCorruptJpeg("the headers end early");
        const std::uint16_t length = readBE16(bytesOf(*lengthBytes));
        if (length < 2) throwCorruptJpeg("a marker segment has a bogus length");
        const auto segment = read(pos + 2, length - 2);
        if (!segment) throwCorruptJpeg("a marker segment runs past the end of the file");
        const std::uint8_t* body = bytesOf(*segment);
        if (isStartOfFrame(code) && !sawFrame) {
            if (segment->size() < 6 || segment->size() < 6 + 3 * body[5]) {
                throwCorruptJpeg("the frame header is damaged");
            }
            info.height = readBE16(body + 1);
            info.width = readBE16(body + 3);
            sawFrame = true;
        }
        pos += length;
    }
    if (!sawFrame) throwCorruptJpeg("no frame header before the image data");
    if (info.width < 1 || info.height < 1) throwCorruptJpeg("the frame size is zero");
    return info;
}

// The IHDR chunk (checked with its CRC) gives the size.
HeaderInfo readPngHeader(const QString& path) {
    HeaderFile file(path);
    const auto head = file.read(0, 33);
    const auto corrupt = [](const char* why) {
        throwCorrupt(
            QStringLiteral("The file is not a readable PNG image (%1).").arg(QLatin1String(why)));
    };
    if (!head || !head->startsWith("\x89PNG\r\n\x1A\n")) corrupt("no PNG signature or header");
    const std::uint8_t* bytes = bytesOf(*head);
    if (readBE32(bytes + 8) != 13 || head->mid(12, 4) != "IHDR") corrupt("no image header");
    if (pngCrc(bytes + 12, 17) != readBE32(bytes + 29)) corrupt("the image header is damaged");
    HeaderInfo info;
    info.width = readBE32(bytes + 16);
    info.height = readBE32(bytes + 20);
    if (info.width < 1 || info.height < 1 || info.width > 0x7FFFFFFF || info.height > 0x7FFFFFFF) {
        corrupt("the image size is invalid");
    }
    return info;
}

// RIFF chunks: the first is VP8 (lossy), VP8L (lossless) or VP8X (extended, with the canvas
// size).
HeaderInfo readWebpHeader(const QString& path) {
    HeaderFile file(path);
    const auto corrupt = [](const char* why) {
        throwCorrupt(
            QStringLiteral("The file is not a readable WebP image (%1).").arg(QLatin1String(why)));
    };
    const auto riff = file.read(0, 12);
    if (!riff || !riff->startsWith("RIFF") || riff->mid(8, 4) != "WEBP") corrupt("no RIFF header");
    const auto first = file.read(12, 8 + 10);
    if (!first) corrupt("the headers end early");
    const QByteArray kind = first->mid(0, 4);
    const std::uint8_t* body = bytesOf(*first) + 8;
    HeaderInfo info;
    if (kind == "VP8 ") {
        if ((body[0] & 1) != 0 || body[3] != 0x9D || body[4] != 0x01 || body[5] != 0x2A) {
            corrupt("the lossy frame header is damaged");
        }
        info.width = readLE16(body + 6) & 0x3FFF;
        info.height = readLE16(body + 8) & 0x3FFF;
    } else if (kind == "VP8L") {
        if (body[0] != 0x2F) corrupt("the lossless header is damaged");
        const std::uint32_t bits = readLE32(body + 1);
        info.width = (bits & 0x3FFF) + 1;
        info.height = ((bits >> 14) & 0x3FFF) + 1;
    } else if (kind == "VP8X") {
        info.width = 1 + (body[4] | (body[5] << 8) | (body[6] << 16));
        info.height = 1 + (body[7] | (body[8] << 8) | (body[9] << 16));
    } else {
        corrupt("no image chunk");
    }
    if (info.width < 1 || info.height < 1) corrupt("the image size is zero");
    return info;
}

}  // namespace detail

ImageProperties readProperties(const QString& path) {
    std::optional<ImageFormat> format;
    {
        detail::HeaderFile file(path);
        const std::int64_t probe = std::min<std::int64_t>(file.size(), 256);
        if (probe == 0) detail::throwCorrupt(QStringLiteral("The file is empty."));
        format = sniffFormat(file.read(0, probe).value_or(QByteArray()));
    }
    if (!format) format = imageFormatFromFileExtension(QFileInfo(path).suffix());
    if (!format) {
        throw ImageIOError(ImageIOError::unsupportedFormat,
                           QStringLiteral("The file is not an image in a supported format."));
    }
    detail::HeaderInfo info;
    switch (*format) {
        case ImageFormat::jpeg:
            info = detail::readJpegHeader(path);
            break;
        case ImageFormat::png:
            info = detail::readPngHeader(path);
            break;
        case ImageFormat::webp:
            info = detail::readWebpHeader(path);
            break;
        case ImageFormat::avif:
        case ImageFormat::heic:
            info = detail::readHeifHeader(path);
            break;
    }
    ImageProperties properties;
    properties.format = *format;
    properties.typeIdentifier = typeIdentifier(*format);
    properties.width = info.width;
    properties.height = info.height;
    return properties;
}

}  // namespace velt::imageio
