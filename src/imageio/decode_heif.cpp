// HEIC and AVIF through libheif: the primary image of the container, decoded to interleaved
// 8-bit RGBA (libheif converts deeper sources and applies the container's rotation/mirroring).
#include "imageio/decode_internal.h"

#include <QFile>
#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include <libheif/heif.h>

namespace velt::imageio::detail {

namespace {

struct ContextDeleter {
    void operator()(heif_context* context) const { heif_context_free(context); }
};
struct HandleDeleter {
    void operator()(heif_image_handle* handle) const { heif_image_handle_release(handle); }
};
struct ImageDeleter {
    void operator()(heif_image* image) const { heif_image_release(image); }
};
struct OptionsDeleter {
    void operator()(heif_decoding_options* options) const { heif_decoding_options_free(options); }
};
using Context = std::unique_ptr<heif_context, ContextDeleter>;
using Handle = std::unique_ptr<heif_image_handle, HandleDeleter>;
using Image = std::unique_ptr<heif_image, ImageDeleter>;

const std::uint8_t* bytesOf(const QByteArray& data) {
    return reinterpret_cast<const std::uint8_t*>(data.constData());
}

[[noreturn]] void throwHeifError(const char* why) {
    throwCorrupt(
        QStringLiteral("The file is not a readable HEIF image (%1).").arg(QString::fromUtf8(why)));
}

void check(const heif_error& error) {
    if (error.code == heif_error_Ok) return;
    const char* why = error.message ? error.message : "unknown error";
    if (error.subcode == heif_suberror_End_of_data)
        throwTruncated(
            QStringLiteral("The HEIF image ends early (%1).").arg(QString::fromUtf8(why)));
    throwHeifError(why);
}

Context newContext() {
    Context context(heif_context_alloc());
    if (!context) throwHeifError("out of memory");
    return context;
}

Handle primaryImage(heif_context* context) {
    heif_image_handle* handle = nullptr;
    check(heif_context_get_primary_image_handle(context, &handle));
    return Handle(handle);
}

QByteArray embeddedProfile(const heif_image_handle* handle) {
    const heif_color_profile_type type = heif_image_handle_get_color_profile_type(handle);
    if (type != heif_color_profile_type_prof && type != heif_color_profile_type_rICC) return {};
    QByteArray profile(static_cast<qsizetype>(heif_image_handle_get_raw_color_profile_size(handle)),
                       Qt::Uninitialized);
    if (profile.isEmpty()) return {};
    if (heif_image_handle_get_raw_color_profile(handle, profile.data()).code != heif_error_Ok) {
        return {};
    }
    return profile;
}

// The colour an nclx box describes (libheif reports the primaries of the code points); sRGB for
// a file without any colour description.
ColorSpace nclxColorSpace(const heif_image_handle* handle) {
    heif_color_profile_nclx* nclx = nullptr;
    const heif_error error = heif_image_handle_get_nclx_color_profile(handle, &nclx);
    // libheif hands out the description before it checks the code points: it is ours to free
    // on the error path too.
    if (error.code != heif_error_Ok || !nclx) {
        heif_nclx_color_profile_free(nclx);
        return sRGBColorSpace();
    }
    NclxColour colour;
    colour.red[0] = nclx->color_primary_red_x;
    colour.red[1] = nclx->color_primary_red_y;
    colour.green[0] = nclx->color_primary_green_x;
    colour.green[1] = nclx->color_primary_green_y;
    colour.blue[0] = nclx->color_primary_blue_x;
    colour.blue[1] = nclx->color_primary_blue_y;
    colour.white[0] = nclx->color_primary_white_x;
    colour.white[1] = nclx->color_primary_white_y;
    colour.transfer = static_cast<int>(nclx->transfer_characteristics);
    heif_nclx_color_profile_free(nclx);
    return colorSpaceFromNclx(colour);
}

}  // namespace

// libheif parses the boxes and checks every item's extent against the file's size; the coded
// data is neither decoded nor kept in memory.
HeaderInfo readHeifHeader(const QString& path) {
    Context context = newContext();
    check(heif_context_read_from_file(context.get(), QFile::encodeName(path).constData(), nullptr));
    Handle handle = primaryImage(context.get());
    HeaderInfo info;
    info.width = heif_image_handle_get_width(handle.get());
    info.height = heif_image_handle_get_height(handle.get());
    if (info.width < 1 || info.height < 1) throwHeifError("the image size is zero");
    return info;
}

ImageMetadata readHeifMetadata(const QString& path) {
    Context context = newContext();
    check(heif_context_read_from_file(context.get(), QFile::encodeName(path).constData(), nullptr));
    const Handle handle = primaryImage(context.get());
    const auto items = [&](const char* type) {
        std::vector<heif_item_id> ids(
            std::max(0, heif_image_handle_get_number_of_metadata_blocks(handle.get(), type)));
        ids.resize(std::max(0, heif_image_handle_get_list_of_metadata_block_IDs(
                                   handle.get(), type, ids.data(), static_cast<int>(ids.size()))));
        return ids;
    };
    const auto content = [&](heif_item_id id) {
        const std::size_t size = heif_image_handle_get_metadata_size(handle.get(), id);
        if (size > static_cast<std::size_t>(maximumMetadataBlockBytes))
            throw MetadataError(
                QStringLiteral("a metadata item is too large (%1 bytes)").arg(size));
        QByteArray bytes(static_cast<qsizetype>(size), Qt::Uninitialized);
        check(heif_image_handle_get_metadata(handle.get(), id, bytes.data()));
        return bytes;
    };
    ImageMetadata metadata;
    for (const heif_item_id id : items("Exif")) {
        // The item starts with the offset of the TIFF header from the end of that field; some
        // writers put JPEG's "Exif\0\0" there, within the offset or not.
        const QByteArray item = content(id);
        if (item.size() < 4) continue;
        const qsizetype offset = readBE32(bytesOf(item));
        if (offset > item.size() - 4) continue;
        metadata.exif = item.mid(4 + offset);
        if (metadata.exif.startsWith(QByteArray("Exif\0\0", 6))) metadata.exif.remove(0, 6);
        break;
    }
    for (const heif_item_id id : items("mime")) {
        if (qstrcmp(heif_image_handle_get_metadata_content_type(handle.get(), id),
                    "application/rdf+xml") == 0) {
            metadata.xmp = content(id);
            break;
        }
    }
    return metadata;
}

namespace {

// The primary image of the file in `data` (which must outlive the context) and its size, checked
// against the decode limits.
struct Primary {
    Context context;
    Handle handle;
    int width = 0;
    int height = 0;
};

Primary openPrimary(const QByteArray& data) {
    Primary primary{newContext(), {}};
    check(heif_context_read_from_memory_without_copy(
        primary.context.get(), data.constData(), static_cast<std::size_t>(data.size()), nullptr));
    primary.handle = primaryImage(primary.context.get());
    primary.width = heif_image_handle_get_width(primary.handle.get());
    primary.height = heif_image_handle_get_height(primary.handle.get());
    checkDecodeSize(primary.width, primary.height);
    return primary;
}

Image decodePrimary(const Primary& primary, heif_colorspace colorspace, heif_chroma chroma) {
    std::unique_ptr<heif_decoding_options, OptionsDeleter> options(heif_decoding_options_alloc());
    if (!options) throwHeifError("out of memory");
    options->convert_hdr_to_8bit = 1;
    heif_image* decoded = nullptr;
    check(heif_decode_image(primary.handle.get(), &decoded, colorspace, chroma, options.get()));
    return Image(decoded);
}

}  // namespace

FrameSize verifyHeifDecodes(const QByteArray& data) {
    const Primary primary = openPrimary(data);
    const Image image = decodePrimary(primary, heif_colorspace_undefined, heif_chroma_undefined);
    const int width = heif_image_get_primary_width(image.get());
    const int height = heif_image_get_primary_height(image.get());
    if (width != primary.width || height != primary.height)
        throwHeifError("the decoded size differs from the declared one");
    return {width, height};
}

Bitmap decodeHeif(const QByteArray& data) {
    const Primary primary = openPrimary(data);
    const heif_image_handle* handle = primary.handle.get();
    Bitmap bitmap;
    bitmap.width = primary.width;
    bitmap.height = primary.height;
    const bool alpha = heif_image_handle_has_alpha_channel(handle) != 0;
    bitmap.alphaInfo = alpha ? AlphaInfo::last : AlphaInfo::noneSkipLast;
    const Image image = decodePrimary(primary, heif_colorspace_RGB, heif_chroma_interleaved_RGBA);

    int stride = 0;
    const std::uint8_t* plane =
        heif_image_get_plane_readonly(image.get(), heif_channel_interleaved, &stride);
    if (!plane || heif_image_get_width(image.get(), heif_channel_interleaved) != bitmap.width ||
        heif_image_get_height(image.get(), heif_channel_interleaved) != bitmap.height ||
        heif_image_get_bits_per_pixel_range(image.get(), heif_channel_interleaved) != 8 ||
        stride < static_cast<int>(bitmap.rowBytes())) {
        throwHeifError("unexpected decoded layout");
    }
    bitmap.rgba.resize(bitmap.rowBytes() * static_cast<std::size_t>(bitmap.height));
    for (int y = 0; y < bitmap.height; ++y) {
        std::memcpy(bitmap.rgba.data() + y * bitmap.rowBytes(),
                    plane + static_cast<std::size_t>(y) * stride, bitmap.rowBytes());
    }
    if (!alpha) {
        for (std::size_t i = 3; i < bitmap.rgba.size(); i += 4) bitmap.rgba[i] = 255;
    }
    const QByteArray profile = embeddedProfile(handle);
    bitmap.colorSpace = profile.isEmpty() ? nclxColorSpace(handle) : colorSpaceFromICC(profile);
    return bitmap;
}

}  // namespace velt::imageio::detail
