// isAnimated: whether a file is an animation, read from its headers only. A compressed copy keeps
// frame 0 alone, so an animation must be recognised before anything replaces it.
#include "imageio/decode_internal.h"

namespace velt::imageio {
namespace {

using detail::HeaderFile;
using detail::readBE32;

const std::uint8_t* bytesOf(const QByteArray& data) {
    return reinterpret_cast<const std::uint8_t*>(data.constData());
}

// APNG: an acTL chunk, before the first IDAT, announcing more than one frame.
bool isAnimatedPng(HeaderFile& file) {
    std::int64_t offset = 8;
    // A still PNG reaches IDAT after a few small chunks; far fewer than this many.
    for (int chunk = 0; chunk < 1024; ++chunk) {
        const auto header = file.read(offset, 8);
        if (!header) return false;
        const std::uint32_t length = readBE32(bytesOf(*header));
        const QByteArray type = header->mid(4, 4);
        if (type == "IDAT" || type == "IEND") return false;
        if (type == "acTL") {
            const auto body = file.read(offset + 8, 4);
            return body && readBE32(bytesOf(*body)) > 1;
        }
        offset += 12 + static_cast<std::int64_t>(length);
    }
    return false;
}

// WebP: the extended header's animation flag.
bool isAnimatedWebp(HeaderFile& file) {
    const auto header = file.read(12, 9);
    return header && header->startsWith("VP8X") &&
           (static_cast<std::uint8_t>(header->at(8)) & 0x02);
}

// HEIF/AVIF: an image sequence announces itself by its major brand.
bool isHeifSequence(HeaderFile& file) {
    const auto header = file.read(4, 8);
    if (!header || !header->startsWith("ftyp")) return false;
    const QByteArray brand = header->mid(4, 4);
    return brand == "avis" || brand == "msf1" || brand == "hevc" || brand == "hevs";
}

}  // namespace

bool isAnimated(const QString& path) {
    HeaderFile file(path);
    const auto start = file.read(0, 16);
    if (!start) return false;
    switch (sniffFormat(*start).value_or(ImageFormat::jpeg)) {
        case ImageFormat::png:
            return isAnimatedPng(file);
        case ImageFormat::webp:
            return isAnimatedWebp(file);
        case ImageFormat::heic:
        case ImageFormat::avif:
            return isHeifSequence(file);
        case ImageFormat::jpeg:
            break;
    }
    return false;
}

}  // namespace velt::imageio
