// HEIC and AVIF encoding with libheif (x265 for HEVC, aom for AV1) into memory.
//
// Encoder speed, measured with libheif 1.15.1 on a 2-core build machine, 1920×1080 synthetic
// photo-like image (smooth gradients, shapes, fine noise), encode time / bytes / PSNR:
//   x265 q75  fast 1.7 s 967 kB 42.0 dB; medium 1.9 s 971 kB 42.0 dB; slow 4.1 s 945 kB 42.0 dB
//   x265 q50  medium 2.1 s 237 kB 39.4 dB; slow 5.3 s 219 kB 39.2 dB
//   x265 q85  medium 3.8 s 1281 kB;        slow 7.7 s 1265 kB (same PSNR)
//   aom q75   speed 5 2.9 s 27 kB; 6 0.67 s 36 kB; 7 0.39 s 30 kB; 8 0.15 s 43 kB (37.7-37.9 dB)
//   aom q85   speed 6 0.58 s 260 kB; 7 0.66 s 256 kB; 8 0.24 s 286 kB (39.6-39.7 dB)
// x265 "slow" (libheif's default) costs twice the time for 1-7 % smaller files, so "medium";
// aom speed 7 is as small as 6 at the same quality and no slower, while 8 grows files by 10-60 %.
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
    if (format == ImageFormat::avif) return {{"speed", "7"}};
    return {{"preset", "medium"}};
}

bool heifCanEncode(ImageFormat format) {
    if (format != ImageFormat::heic && format != ImageFormat::avif) return false;
    initialiseLibheif();
    return heif_have_encoder_for_format(compressionOf(format)) != 0;
}

QByteArray encodeHEIF(const Bitmap& bitmap, ImageFormat format, int quality, const QByteArray& icc,
                      const ImageMetadata& metadata, const HeifParameters& parameters) {
    initialiseLibheif();
    const Context context(heif_context_alloc());
    if (!context) fail(format, QStringLiteral("out of memory"));
    const Encoder encoder = createEncoder(context.get(), format, quality, parameters);
    const Image image = createImage(bitmap, format, icc);
    const Options options(heif_encoding_options_alloc());
    if (!options) fail(format, QStringLiteral("out of memory"));
    options->save_alpha_channel = hasAlphaChannel(bitmap.alphaInfo) ? 1 : 0;
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
