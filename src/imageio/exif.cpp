// The one EXIF reader of the layer: finds the orientation tag (0x0112) in IFD0 of a TIFF
// structure, as carried by JPEG APP1, PNG eXIf and WebP EXIF chunks.
#include "imageio/decode_internal.h"

#include <cstring>

namespace velt::imageio::detail {

namespace {

constexpr std::uint16_t orientationTag = 0x0112;
constexpr std::uint16_t shortType = 3;

}  // namespace

std::optional<int> exifOrientation(const std::uint8_t* data, std::size_t size) {
    // Some writers keep JPEG's "Exif\0\0" prefix in PNG and WebP too.
    if (size >= 6 && std::memcmp(data, "Exif\0\0", 6) == 0) {
        data += 6;
        size -= 6;
    }
    if (size < 8) return std::nullopt;
    bool bigEndian = false;
    if (std::memcmp(data, "MM\0*", 4) == 0) {
        bigEndian = true;
    } else if (std::memcmp(data, "II*\0", 4) != 0) {
        return std::nullopt;
    }
    const auto u16 = [&](std::size_t at) {
        return bigEndian ? readBE16(data + at) : readLE16(data + at);
    };
    const auto u32 = [&](std::size_t at) {
        return bigEndian ? readBE32(data + at) : readLE32(data + at);
    };

    const std::size_t ifd = u32(4);
    if (ifd > size || size - ifd < 2) return std::nullopt;
    const std::size_t count = u16(ifd);
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t entry = ifd + 2 + i * 12;
        if (entry > size || size - entry < 12) return std::nullopt;
        if (u16(entry) != orientationTag) continue;
        if (u16(entry + 2) != shortType || u32(entry + 4) < 1) return std::nullopt;
        // A SHORT value sits in the first two bytes of the value field in either byte order.
        const int value = u16(entry + 8);
        if (value < 1 || value > 8) return std::nullopt;
        return value;
    }
    return std::nullopt;
}

}  // namespace velt::imageio::detail
