// HEIC and AVIF encoding with libheif (x265 for HEVC, aom for AV1) into memory.
//
// Encoder speed, measured on 2026-11-23 with libheif 1.15.1 (x265 3.5, aom 3.6.0) on a 2-core
// x86-64 machine: twelve photographs of 2-5 MP (42 MP), `bench_tool heif` pinned to one core,
// CPU time of the encoding alone (libheif's RGB to YCbCr 4:2:0 included) per megapixel, and the
// bytes at the mean luma SSIM the JPEG path gives on the balanced preset (0.9858 against the
// camera JPEGs, interpolated between two settings); the floor (djpeg | cjpeg) takes 37 ms per MP
// and the whole HEIC or AVIF path must stay within ten times that:
//   x265 medium                          335 ms  751 kB (veryfast, faster, fast: the same output)
//        superfast, tu-intra-depth 1     265-300 ms  690 kB
//        ultrafast, rdoq-level 2, sao    255 ms  765 kB
//        ultrafast, sao                  150-170 ms  807 kB
//        ultrafast                       160 ms  837 kB
//   aom  speed 6                         410 ms  657 kB
//        speed 7                         325 ms  920 kB
//        speed 8 / 9                     124 / 100 ms  1281 / 1195 kB
//        realtime, speed 5-9             180-195 ms  945 kB (the speed makes no difference)
// So x265 "ultrafast" with SAO back on (it costs nothing and lifts SSIM by 0.0006 at 1 % more
// bytes): the smaller settings need half again to twice the time, which with the decoding of
// the photo and the check of the output leaves no room under the bound. aom in real-time mode
// gives good-quality speed 7's size in 60 % of its time. The default 4:2:0 chroma is kept, as
// the JPEG path's; x265 keeps libheif's "tune ssim", aom its default tuning.
#include "imageio/encoders.h"
#include "imageio/image_io.h"

#include <libheif/heif.h>

#include <algorithm>
#include <cstring>
#include <memory>

namespace velt::imageio::detail {

namespace {

struct ContextDeleter {
    void operator()(heif_context* context) const { heif_context_free(context); }
};
struct EncoderDeleter {
    void operator()(heif_encoder* encoder) const { heif_encoder_release(encoder); }
};
struct ImageDeleter {
    void operator()(heif_image* image) const { heif_image_release(image); }
};
struct HandleDeleter {
    void operator()(heif_image_handle* handle) const { heif_image_handle_release(handle); }
};
struct OptionsDeleter {
    void operator()(heif_encoding_options* options) const { heif_encoding_options_free(options); }
};
using Context = std::unique_ptr<heif_context, ContextDeleter>;
using Encoder = std::unique_ptr<heif_encoder, EncoderDeleter>;
using Image = std::unique_ptr<heif_image, ImageDeleter>;
using Options = std::unique_ptr<heif_encoding_options, OptionsDeleter>;
using Handle = std::unique_ptr<heif_image_handle, HandleDeleter>;

// Registers libheif's built-in encoders once per process; never undone, as other threads may be
// encoding or decoding at any time.
void initialiseLibheif() {
    static const bool initialised = [] {
        heif_init(nullptr);
        return true;
    }();
    (void)initialised;
}

heif_compression_format compressionOf(ImageFormat format) {
    return format == ImageFormat::avif ? heif_compression_AV1 : heif_compression_HEVC;
}

QString formatName(ImageFormat format) {
    return format == ImageFormat::avif ? QStringLiteral("AVIF") : QStringLiteral("HEIC");
}

[[noreturn]] void fail(ImageFormat format, const QString& reason) {
    throw ImageIOError(ImageIOError::writeFailed,
                       QStringLiteral("%1 encoding failed: %2").arg(formatName(format), reason));
}

void check(const heif_error& error, ImageFormat format) {
    if (error.code != heif_error_Ok) fail(format, QString::fromUtf8(error.message));
}

Encoder createEncoder(heif_context* context, ImageFormat format, int quality,
                      const HeifParameters& parameters) {
    heif_encoder* raw = nullptr;
    const heif_error error =
        heif_context_get_encoder_for_format(context, compressionOf(format), &raw);
    Encoder encoder(raw);
    if (error.code != heif_error_Ok || !encoder) {
        throw ImageIOError(ImageIOError::unsupportedFormat,
                           QStringLiteral("No %1 encoder is available.").arg(formatName(format)));
    }
    check(heif_encoder_set_lossy_quality(encoder.get(), std::clamp(quality, 0, 100)), format);
    // Speed settings are best effort: another plug-in chosen for the format may not know the
    // parameter, and then its own default is right for it.
    for (const auto& [name, value] : parameters)
        heif_encoder_set_parameter(encoder.get(), name.c_str(), value.c_str());
    return encoder;
}

// The bitmap as a libheif interleaved RGB or RGBA image, carrying `icc` as a raw profile.
Image createImage(const Bitmap& bitmap, ImageFormat format, const QByteArray& icc) {
    const bool alpha = hasAlphaChannel(bitmap.alphaInfo);
    heif_image* raw = nullptr;
    check(
        heif_image_create(bitmap.width, bitmap.height, heif_colorspace_RGB,
                          alpha ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB, &raw),
        format);
    Image image(raw);
    check(
        heif_image_add_plane(image.get(), heif_channel_interleaved, bitmap.width, bitmap.height, 8),
        format);
    int stride = 0;
    std::uint8_t* plane = heif_image_get_plane(image.get(), heif_channel_interleaved, &stride);
    if (plane == nullptr) fail(format, QStringLiteral("no pixel plane"));
    const int channels = alpha ? 4 : 3;
    for (int y = 0; y < bitmap.height; ++y) {
        const std::uint8_t* in = bitmap.pixel(0, y);
        std::uint8_t* out = plane + static_cast<std::ptrdiff_t>(y) * stride;
        for (int x = 0; x < bitmap.width; ++x) {
            std::memcpy(out + x * channels, in + x * 4, static_cast<std::size_t>(channels));
        }
    }
    if (!icc.isEmpty()) {
        check(heif_image_set_raw_color_profile(image.get(), "prof", icc.constData(),
                                               static_cast<std::size_t>(icc.size())),
              format);
    }
    return image;
}

// libheif's writer callback: must not throw into the library.
heif_error appendOutput(heif_context*, const void* data, size_t size, void* userdata) {
    try {
        static_cast<QByteArray*>(userdata)->append(static_cast<const char*>(data),
                                                   static_cast<qsizetype>(size));
        return {heif_error_Ok, heif_suberror_Unspecified, "Success"};
    } catch (...) {
        return {heif_error_Encoding_error, heif_suberror_Cannot_write_output_data,
                "out of memory for the encoded image"};
    }
}

// EXIF (libheif finds the TIFF header and adds the offset field) and XMP as items of the image.
void addMetadata(heif_context* context, const heif_image_handle* handle,
                 const ImageMetadata& metadata, ImageFormat format) {
    if (!metadata.exif.isEmpty())
        check(heif_context_add_exif_metadata(context, handle, metadata.exif.constData(),
                                             static_cast<int>(metadata.exif.size())),
              format);
    if (!metadata.xmp.isEmpty())
        check(heif_context_add_XMP_metadata(context, handle, metadata.xmp.constData(),
                                            static_cast<int>(metadata.xmp.size())),
              format);
}

}  // namespace

HeifParameters defaultHeifParameters(ImageFormat format) {
    if (format == ImageFormat::avif) return {{"realtime", "true"}, {"speed", "7"}};
    return {{"preset", "ultrafast"}, {"x265:sao", "1"}};
}

bool heifCanEncode(ImageFormat format) {
    if (format != ImageFormat::heic && format != ImageFormat::avif) return false;
    initialiseLibheif();
    return heif_have_encoder_for_format(compressionOf(format)) != 0;
}

QByteArray encodeHEIF(Bitmap&& bitmap, ImageFormat format, int quality, const QByteArray& icc,
                      const ImageMetadata& metadata, const HeifParameters& parameters) {
    initialiseLibheif();
    const Context context(heif_context_alloc());
    if (!context) fail(format, QStringLiteral("out of memory"));
    const Encoder encoder = createEncoder(context.get(), format, quality, parameters);
    const Image image = createImage(bitmap, format, icc);
    const bool alpha = hasAlphaChannel(bitmap.alphaInfo);
    std::vector<std::uint8_t>().swap(bitmap.rgba);
    const Options options(heif_encoding_options_alloc());
    if (!options) fail(format, QStringLiteral("out of memory"));
    options->save_alpha_channel = alpha ? 1 : 0;
    heif_image_handle* rawHandle = nullptr;
    check(heif_context_encode_image(context.get(), image.get(), encoder.get(), options.get(),
                                    &rawHandle),
          format);
    const Handle handle(rawHandle);
    addMetadata(context.get(), handle.get(), metadata, format);
    QByteArray output;
    heif_writer writer{1, appendOutput};
    check(heif_context_write(context.get(), &writer, &output), format);
    return output;
}

}  // namespace velt::imageio::detail
