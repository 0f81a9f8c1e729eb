// The metadata reader and writer as the engine uses them. The first byte chooses what the rest is:
// a whole image file (JPEG, PNG, WebP, HEIF: read for its orientation and its output under a
// policy), or an EXIF, XMP or IPTC block (read, filtered and written into a small JPEG, PNG and
// WebP). Nothing may crash, an orientation is 1-8 or none, and whatever is accepted must be
// written without an error escaping.
#include "fuzz_input_file.h"
#include "imageio/encoders.h"
#include "imageio/metadata.h"

#include <QByteArray>

namespace {

using namespace velt;
using namespace velt::imageio;

const QByteArray& smallImage(ImageFormat format) {
    static const auto make = [](ImageFormat f) {
        Bitmap bitmap;
        bitmap.width = 8;
        bitmap.height = 8;
        bitmap.alphaInfo = AlphaInfo::noneSkipLast;
        bitmap.rgba.assign(8 * 8 * 4, 200);
        return f == ImageFormat::png ? detail::encodePNG(bitmap, {})
                                     : detail::encodeJPEG(bitmap, 80, {});
    };
    static const QByteArray jpeg = make(ImageFormat::jpeg);
    static const QByteArray png = make(ImageFormat::png);
    // A 1×1 lossless WebP as cwebp writes it.
    static const QByteArray webp = QByteArray::fromHex(
        "524946461e000000574542505650384c110000002f000000000750e42217b9ff8188e87f0000");
    return format == ImageFormat::png ? png : format == ImageFormat::jpeg ? jpeg : webp;
}

void writeEverywhere(const ImageMetadata& metadata) {
    for (const ImageFormat format : {ImageFormat::jpeg, ImageFormat::png, ImageFormat::webp}) {
        try {
            const QByteArray written = withMetadata(smallImage(format), format, metadata);
            if (written.isEmpty()) __builtin_trap();
        } catch (const MetadataError&) {
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1) return 0;
    const auto policy = static_cast<MetadataPolicy>((data[0] >> 2) % 3);
    const QByteArray rest(reinterpret_cast<const char*>(data + 1),
                          static_cast<qsizetype>(size - 1));
    ImageMetadata block;
    switch (data[0] & 3) {
        case 0: {
            const PhotoMetadata read =
                readPhotoMetadata(fuzzing::inputFile(data + 1, size - 1, "img"), policy);
            if (read.orientation && (*read.orientation < 1 || *read.orientation > 8))
                __builtin_trap();
            writeEverywhere(read.carried);
            return 0;
        }
        case 1:
            block.exif = rest;
            break;
        case 2:
            block.xmp = rest;
            break;
        default:
            block.iptc = rest;
            break;
    }
    writeEverywhere(readPhotoMetadata(block, policy).carried);
    return 0;
}
