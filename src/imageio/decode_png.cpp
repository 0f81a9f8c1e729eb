// PNG decoding with libpng: every colour type and bit depth to 8-bit RGBA (grey through the
// grey conversion). libpng reports errors by longjmp; as for JPEG, the calls into it are fenced
// into small functions whose frames hold only trivially destructible values.
#include "imageio/decode_internal.h"

#include "model/constants.h"

#include <algorithm>
#include <csetjmp>
#include <cstring>
#include <vector>

#include <png.h>

namespace velt::imageio::detail {

namespace {

struct PngDecoder {
    png_structp png = nullptr;
    png_infop info = nullptr;
    std::jmp_buf jump;
    char message[256] = {};
    const unsigned char* data = nullptr;
    std::size_t size = 0;
    std::size_t position = 0;
    bool endedEarly = false;  // the data ran out before libpng was done
    // From the header (filled by fencedReadInfo).
    png_uint_32 width = 0;
    png_uint_32 height = 0;
    int bitDepth = 0;
    int colorType = 0;
    bool hasTransparency = false;
    png_bytep profile = nullptr;  // owned by `info`
    png_uint_32 profileLength = 0;

    PngDecoder() = default;
    PngDecoder(const PngDecoder&) = delete;
    PngDecoder& operator=(const PngDecoder&) = delete;
    ~PngDecoder() {
        if (png) png_destroy_read_struct(&png, info ? &info : nullptr, nullptr);
    }
};

void onError(png_structp png, png_const_charp message) {
    auto* decoder = static_cast<PngDecoder*>(png_get_error_ptr(png));
    std::strncpy(decoder->message, message, sizeof decoder->message - 1);
    std::longjmp(decoder->jump, 1);
}

void onWarning(png_structp, png_const_charp) {}

void onRead(png_structp png, png_bytep out, png_size_t count) {
    auto* decoder = static_cast<PngDecoder*>(png_get_io_ptr(png));
    if (count > decoder->size - decoder->position) {
        decoder->endedEarly = true;
        png_error(png, "the file ends early");
    }
    std::memcpy(out, decoder->data + decoder->position, count);
    decoder->position += count;
}

// Fenced: creates the reader and reads every chunk up to the image data.
bool fencedReadInfo(PngDecoder* decoder) {
    if (setjmp(decoder->jump)) return false;
    decoder->png = png_create_read_struct(PNG_LIBPNG_VER_STRING, decoder, onError, onWarning);
    if (!decoder->png) return false;
    decoder->info = png_create_info_struct(decoder->png);
    if (!decoder->info) return false;
    // A second fence behind the size check made before libpng is called: no dimension above
    // what the pixel limit could ever admit.
    const auto limit =
        static_cast<png_uint_32>(std::min<std::int64_t>(maximumDecodedPixelCount, PNG_UINT_31_MAX));
    png_set_user_limits(decoder->png, limit, limit);
    png_set_read_fn(decoder->png, decoder, onRead);
    png_read_info(decoder->png, decoder->info);
    int interlace = 0;
    png_get_IHDR(decoder->png, decoder->info, &decoder->width, &decoder->height, &decoder->bitDepth,
                 &decoder->colorType, &interlace, nullptr, nullptr);
    decoder->hasTransparency = png_get_valid(decoder->png, decoder->info, PNG_INFO_tRNS) != 0;
    png_charp name = nullptr;
    int compression = 0;
    if (!png_get_iCCP(decoder->png, decoder->info, &name, &compression, &decoder->profile,
                      &decoder->profileLength)) {
        decoder->profile = nullptr;
        decoder->profileLength = 0;
    }
    return true;
}

// Fenced: asks for 8-bit samples, palette and transparency expanded, RGB filled to RGBA;
// grey stays one (or with alpha two) channels. Returns the row size libpng will deliver.
bool fencedSetUpTransforms(PngDecoder* decoder, bool color, std::size_t* rowBytes) {
    if (setjmp(decoder->jump)) return false;
    png_set_expand(decoder->png);
    if (decoder->bitDepth == 16) png_set_scale_16(decoder->png);
    if (color && !(decoder->colorType & PNG_COLOR_MASK_ALPHA) && !decoder->hasTransparency) {
        png_set_filler(decoder->png, 0xFF, PNG_FILLER_AFTER);
    }
    png_set_interlace_handling(decoder->png);
    png_read_update_info(decoder->png, decoder->info);
    *rowBytes = png_get_rowbytes(decoder->png, decoder->info);
    return true;
}

// Fenced: decodes all rows (every pass of an interlaced image) into `rows`.
bool fencedReadImage(PngDecoder* decoder, png_bytepp rows) {
    if (setjmp(decoder->jump)) return false;
    png_read_image(decoder->png, rows);
    return true;
}

[[noreturn]] void throwPngError(const PngDecoder& decoder) {
    const char* reason = decoder.message[0] ? decoder.message : "damaged data";
    if (decoder.endedEarly) throwTruncated(QStringLiteral("The PNG image ends early."));
    throwCorrupt(QStringLiteral("The file is not a readable PNG image (%1).")
                     .arg(QString::fromLocal8Bit(reason)));
}

// The declared size, read straight from IHDR before libpng allocates anything.
void checkDeclaredSize(const QByteArray& data) {
    if (data.size() < 24 || !data.startsWith("\x89PNG\r\n\x1A\n") || data.mid(12, 4) != "IHDR") {
        return;  // libpng reports the damage
    }
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(data.constData());
    checkDecodeSize(readBE32(bytes + 16), readBE32(bytes + 20));
}

}  // namespace

Bitmap decodePng(const QByteArray& data) {
    checkDeclaredSize(data);
    PngDecoder decoder;
    decoder.data = reinterpret_cast<const unsigned char*>(data.constData());
    decoder.size = static_cast<std::size_t>(data.size());
    if (!fencedReadInfo(&decoder)) throwPngError(decoder);
    checkDecodeSize(decoder.width, decoder.height);

    const bool color = (decoder.colorType & PNG_COLOR_MASK_COLOR) != 0;
    const bool alpha = (decoder.colorType & PNG_COLOR_MASK_ALPHA) != 0 || decoder.hasTransparency;
    const std::size_t channels = color ? 4 : (alpha ? 2 : 1);
    std::size_t rowBytes = 0;
    if (!fencedSetUpTransforms(&decoder, color, &rowBytes)) throwPngError(decoder);
    if (rowBytes != decoder.width * channels) {
        throwCorrupt(QStringLiteral("The file is not a readable PNG image (unexpected layout)."));
    }

    Bitmap bitmap;
    bitmap.width = static_cast<int>(decoder.width);
    bitmap.height = static_cast<int>(decoder.height);
    bitmap.alphaInfo = alpha ? AlphaInfo::last : AlphaInfo::noneSkipLast;
    const std::size_t pixelCount = static_cast<std::size_t>(bitmap.width) * bitmap.height;
    const QByteArray profile(reinterpret_cast<const char*>(decoder.profile),
                             static_cast<qsizetype>(decoder.profileLength));

    std::vector<std::uint8_t> samples(color ? 0 : pixelCount * channels);
    bitmap.rgba.resize(pixelCount * 4);
    std::uint8_t* target = color ? bitmap.rgba.data() : samples.data();
    std::vector<png_bytep> rows(decoder.height);
    for (png_uint_32 y = 0; y < decoder.height; ++y) rows[y] = target + y * rowBytes;
    if (!fencedReadImage(&decoder, rows.data())) throwPngError(decoder);

    if (color) {
        bitmap.colorSpace = profile.isEmpty() ? sRGBColorSpace() : colorSpaceFromICC(profile);
        return bitmap;
    }
    std::vector<std::uint8_t> gray(pixelCount);
    for (std::size_t i = 0; i < pixelCount; ++i) gray[i] = samples[i * channels];
    convertGrayToSRGB(gray.data(), pixelCount, profile, bitmap.rgba.data());
    if (alpha) {
        for (std::size_t i = 0; i < pixelCount; ++i) bitmap.rgba[i * 4 + 3] = samples[i * 2 + 1];
    }
    bitmap.colorSpace = sRGBColorSpace();
    return bitmap;
}

}  // namespace velt::imageio::detail
