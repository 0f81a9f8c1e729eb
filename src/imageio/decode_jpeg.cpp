// JPEG decoding with libjpeg-turbo. libjpeg reports errors by longjmp, so every call into it
// runs inside a small "fenced" function whose frame holds only trivially destructible values;
// the C++ objects (buffers, the decoder holder) live in the callers, which the jump never crosses.
#include "imageio/decode_internal.h"

#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include <jerror.h>
#include <jpeglib.h>

namespace velt::imageio::detail {

namespace {

// More scans than any real progressive file uses; beyond this a file is a decoding-time bomb.
constexpr int maximumScanCount = 1000;
// libjpeg's working memory (coefficient buffers of progressive files); it has no backing store,
// so asking for more fails cleanly instead of exhausting memory.
constexpr long maximumWorkingMemory = 768L * 1024 * 1024;

struct JpegErrorManager {
    jpeg_error_mgr base;  // first, so libjpeg's pointer can be cast back
    std::jmp_buf jump;
    char message[JMSG_LENGTH_MAX];
    int code;  // libjpeg's message code of the failure
};

struct JpegDecoder {
    jpeg_decompress_struct info{};
    JpegErrorManager error{};
    jpeg_progress_mgr progress{};
    bool created = false;

    JpegDecoder() = default;
    JpegDecoder(const JpegDecoder&) = delete;
    JpegDecoder& operator=(const JpegDecoder&) = delete;
    ~JpegDecoder() {
        if (created) jpeg_destroy_decompress(&info);
    }
};

[[noreturn]] void jumpOut(j_common_ptr info) {
    auto* error = reinterpret_cast<JpegErrorManager*>(info->err);
    std::longjmp(error->jump, 1);
}

void onError(j_common_ptr info) {
    auto* error = reinterpret_cast<JpegErrorManager*>(info->err);
    (*info->err->format_message)(info, error->message);
    error->code = info->err->msg_code;
    jumpOut(info);
}

// Warnings are ignored (real files often carry stray bytes) except running out of coded data,
// at the end of the file or at a marker: such a picture would otherwise decode with its missing
// part painted grey, and a grey copy would replace the photo.
void onMessage(j_common_ptr info, int level) {
    if (level != -1) return;
    if (info->err->msg_code == JWRN_JPEG_EOF || info->err->msg_code == JWRN_HIT_MARKER)
        onError(info);
}

void onProgress(j_common_ptr info) {
    auto* decompress = reinterpret_cast<j_decompress_ptr>(info);
    if (decompress->input_scan_number > maximumScanCount) {
        std::snprintf(reinterpret_cast<JpegErrorManager*>(info->err)->message, JMSG_LENGTH_MAX,
                      "more than %d scans", maximumScanCount);
        jumpOut(info);
    }
}

// Fenced: creates the decoder over `data` and reads the headers (keeping APP2 for ICC).
bool fencedReadHeader(JpegDecoder* decoder, const unsigned char* data, unsigned long size) {
    decoder->info.err = jpeg_std_error(&decoder->error.base);
    decoder->error.base.error_exit = onError;
    decoder->error.base.emit_message = onMessage;
    if (setjmp(decoder->error.jump)) return false;
    jpeg_create_decompress(&decoder->info);
    decoder->created = true;
    decoder->info.mem->max_memory_to_use = maximumWorkingMemory;
    decoder->progress.progress_monitor = onProgress;
    decoder->info.progress = &decoder->progress;
    jpeg_mem_src(&decoder->info, data, size);
    jpeg_save_markers(&decoder->info, JPEG_APP0 + 2, 0xFFFF);
    return jpeg_read_header(&decoder->info, TRUE) == JPEG_HEADER_OK;
}

// Fenced: the ICC profile reassembled from its APP2 chunks (malloc'ed; the caller frees it).
bool fencedReadIcc(JpegDecoder* decoder, JOCTET** profile, unsigned int* length) {
    if (setjmp(decoder->error.jump)) return false;
    if (!jpeg_read_icc_profile(&decoder->info, profile, length)) {
        *profile = nullptr;
        *length = 0;
    }
    return true;
}

// Fenced: decodes every scanline into `out`, `rowBytes` apart.
bool fencedReadPixels(JpegDecoder* decoder, unsigned char* out, std::size_t rowBytes) {
    if (setjmp(decoder->error.jump)) return false;
    if (!jpeg_start_decompress(&decoder->info)) return false;
    if (decoder->info.output_width * static_cast<std::size_t>(decoder->info.output_components) !=
        rowBytes) {
        return false;
    }
    while (decoder->info.output_scanline < decoder->info.output_height) {
        JSAMPROW row = out + decoder->info.output_scanline * rowBytes;
        if (jpeg_read_scanlines(&decoder->info, &row, 1) != 1) return false;
    }
    return true;
}

// Fenced: decodes every scanline at 1/8 scale into `out` (`capacity` bytes). Every entropy-coded
// coefficient is still read, so damage anywhere in the data is found, at a fraction of the cost.
bool fencedReadReduced(JpegDecoder* decoder, unsigned char* out, std::size_t capacity) {
    if (setjmp(decoder->error.jump)) return false;
    decoder->info.scale_num = 1;
    decoder->info.scale_denom = 8;
    if (!jpeg_start_decompress(&decoder->info)) return false;
    const std::size_t rowBytes =
        decoder->info.output_width * static_cast<std::size_t>(decoder->info.output_components);
    if (rowBytes * decoder->info.output_height > capacity) return false;
    while (decoder->info.output_scanline < decoder->info.output_height) {
        JSAMPROW row = out + decoder->info.output_scanline * rowBytes;
        if (jpeg_read_scanlines(&decoder->info, &row, 1) != 1) return false;
    }
    return jpeg_finish_decompress(&decoder->info) != 0;
}

// Every 8×8 block of coded data takes at least a few bits; a file far smaller than its claimed
// size can only be a header that lies, refused before the raster is allocated.
void checkPlausibleSize(const JpegDecoder& decoder, qsizetype fileBytes) {
    const std::int64_t pixels =
        static_cast<std::int64_t>(decoder.info.image_width) * decoder.info.image_height;
    if (fileBytes < pixels / 2048)
        throwCorrupt(QStringLiteral("The file is not a readable JPEG image (%1 bytes cannot hold "
                                    "%2×%3 pixels).")
                         .arg(fileBytes)
                         .arg(decoder.info.image_width)
                         .arg(decoder.info.image_height));
}

[[noreturn]] void throwJpegError(const JpegDecoder& decoder) {
    const char* reason = decoder.error.message[0] ? decoder.error.message : "damaged data";
    if (decoder.error.code == JWRN_JPEG_EOF)
        throwTruncated(
            QStringLiteral("The JPEG image ends early (%1).").arg(QString::fromLocal8Bit(reason)));
    throwCorrupt(QStringLiteral("The file is not a readable JPEG image (%1).")
                     .arg(QString::fromLocal8Bit(reason)));
}

QByteArray embeddedProfile(JpegDecoder& decoder) {
    JOCTET* profile = nullptr;
    unsigned int length = 0;
    if (!fencedReadIcc(&decoder, &profile, &length)) throwJpegError(decoder);
    QByteArray bytes(reinterpret_cast<const char*>(profile), static_cast<qsizetype>(length));
    std::free(profile);
    return bytes;
}

}  // namespace

Bitmap decodeJpeg(const QByteArray& data) {
    parseJpegHeader([&data](std::int64_t offset, std::int64_t count) -> std::optional<QByteArray> {
        if (offset < 0 || count < 0 || offset > data.size() || count > data.size() - offset) {
            return std::nullopt;
        }
        return data.mid(offset, count);
    });
    JpegDecoder decoder;
    if (!fencedReadHeader(&decoder, reinterpret_cast<const unsigned char*>(data.constData()),
                          static_cast<unsigned long>(data.size()))) {
        throwJpegError(decoder);
    }
    checkDecodeSize(decoder.info.image_width, decoder.info.image_height);
    checkPlausibleSize(decoder, data.size());
    const QByteArray profile = embeddedProfile(decoder);

    Bitmap bitmap;
    bitmap.width = static_cast<int>(decoder.info.image_width);
    bitmap.height = static_cast<int>(decoder.info.image_height);
    const std::size_t pixelCount = static_cast<std::size_t>(bitmap.width) * bitmap.height;
    bitmap.alphaInfo = AlphaInfo::noneSkipLast;

    const J_COLOR_SPACE stored = decoder.info.jpeg_color_space;
    if (stored == JCS_GRAYSCALE) {
        decoder.info.out_color_space = JCS_GRAYSCALE;
        std::vector<std::uint8_t> gray(pixelCount);
        if (!fencedReadPixels(&decoder, gray.data(), static_cast<std::size_t>(bitmap.width))) {
            throwJpegError(decoder);
        }
        bitmap.rgba.resize(pixelCount * 4);
        convertGrayToSRGB(gray.data(), pixelCount, profile, bitmap.rgba.data());
        bitmap.colorSpace = sRGBColorSpace();
    } else if (stored == JCS_CMYK || stored == JCS_YCCK) {
        decoder.info.out_color_space = JCS_CMYK;
        std::vector<std::uint8_t> cmyk(pixelCount * 4);
        if (!fencedReadPixels(&decoder, cmyk.data(), bitmap.rowBytes())) throwJpegError(decoder);
        bitmap.rgba.resize(pixelCount * 4);
        // Adobe's writers (the only common source of CMYK JPEG) store the inks inverted.
        convertCMYKToSRGB(cmyk.data(), pixelCount, decoder.info.saw_Adobe_marker != 0, profile,
                          bitmap.rgba.data());
        bitmap.colorSpace = sRGBColorSpace();
    } else {
        decoder.info.out_color_space = JCS_EXT_RGBA;
        bitmap.rgba.resize(pixelCount * 4);
        if (!fencedReadPixels(&decoder, bitmap.rgba.data(), bitmap.rowBytes())) {
            throwJpegError(decoder);
        }
        bitmap.colorSpace = profile.isEmpty() ? sRGBColorSpace() : colorSpaceFromICC(profile);
    }
    return bitmap;
}

FrameSize verifyJpegDecodes(const QByteArray& data) {
    JpegDecoder decoder;
    if (!fencedReadHeader(&decoder, reinterpret_cast<const unsigned char*>(data.constData()),
                          static_cast<unsigned long>(data.size()))) {
        throwJpegError(decoder);
    }
    checkDecodeSize(decoder.info.image_width, decoder.info.image_height);
    checkPlausibleSize(decoder, data.size());
    // At 1/8 scale each side is rounded up; four components is the most a JPEG decodes to.
    const std::size_t capacity = static_cast<std::size_t>((decoder.info.image_width + 7) / 8) *
                                 ((decoder.info.image_height + 7) / 8) * 4;
    std::vector<std::uint8_t> pixels(capacity);
    if (!fencedReadReduced(&decoder, pixels.data(), capacity)) throwJpegError(decoder);
    return {decoder.info.image_width, decoder.info.image_height};
}

}  // namespace velt::imageio::detail
