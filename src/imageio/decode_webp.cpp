// WebP decoding with libwebp: still images (lossy, lossless, with alpha) straight into the
// bitmap, animations through the animation decoder's first composed frame; the ICC profile
// comes from the ICCP chunk through the demuxer.
#include "imageio/decode_internal.h"

#include <cstring>
#include <memory>

#include <webp/decode.h>
#include <webp/demux.h>

namespace velt::imageio::detail {

namespace {

struct DemuxDeleter {
    void operator()(WebPDemuxer* demux) const { WebPDemuxDelete(demux); }
};
struct AnimDecoderDeleter {
    void operator()(WebPAnimDecoder* decoder) const { WebPAnimDecoderDelete(decoder); }
};

[[noreturn]] void throwWebpError(const char* why) {
    throwCorrupt(
        QStringLiteral("The file is not a readable WebP image (%1).").arg(QLatin1String(why)));
}

QByteArray iccProfile(const WebPData& webpData) {
    std::unique_ptr<WebPDemuxer, DemuxDeleter> demux(WebPDemux(&webpData));
    if (!demux) return {};
    WebPChunkIterator chunk;
    QByteArray profile;
    if (WebPDemuxGetChunk(demux.get(), "ICCP", 1, &chunk)) {
        profile = QByteArray(reinterpret_cast<const char*>(chunk.chunk.bytes),
                             static_cast<qsizetype>(chunk.chunk.size));
        WebPDemuxReleaseChunkIterator(&chunk);
    }
    return profile;
}

void decodeFirstAnimationFrame(const WebPData& webpData, Bitmap& bitmap) {
    WebPAnimDecoderOptions options;
    if (!WebPAnimDecoderOptionsInit(&options)) throwWebpError("decoder unavailable");
    options.color_mode = MODE_RGBA;
    options.use_threads = 0;
    std::unique_ptr<WebPAnimDecoder, AnimDecoderDeleter> decoder(
        WebPAnimDecoderNew(&webpData, &options));
    if (!decoder) throwWebpError("damaged animation");
    WebPAnimInfo info;
    if (!WebPAnimDecoderGetInfo(decoder.get(), &info) ||
        info.canvas_width != static_cast<std::uint32_t>(bitmap.width) ||
        info.canvas_height != static_cast<std::uint32_t>(bitmap.height)) {
        throwWebpError("inconsistent canvas size");
    }
    std::uint8_t* frame = nullptr;
    int timestamp = 0;
    if (!WebPAnimDecoderGetNext(decoder.get(), &frame, &timestamp)) {
        throwWebpError("damaged first frame");
    }
    std::memcpy(bitmap.rgba.data(), frame, bitmap.rgba.size());
}

// Whether the RIFF header announces more bytes than the file holds.
bool endsEarly(const QByteArray& data) {
    if (data.size() < 12 || !data.startsWith("RIFF")) return false;
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(data.constData());
    const std::uint64_t declared = 8u + (bytes[4] | bytes[5] << 8 | bytes[6] << 16 |
                                         static_cast<std::uint64_t>(bytes[7]) << 24);
    return static_cast<std::uint64_t>(data.size()) < declared;
}

Bitmap decodeWebpData(const QByteArray& data) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(data.constData());
    const auto size = static_cast<std::size_t>(data.size());
    WebPBitstreamFeatures features;
    if (WebPGetFeatures(bytes, size, &features) != VP8_STATUS_OK) throwWebpError("damaged header");
    checkDecodeSize(features.width, features.height);

    Bitmap bitmap;
    bitmap.width = features.width;
    bitmap.height = features.height;
    bitmap.alphaInfo = features.has_alpha ? AlphaInfo::last : AlphaInfo::noneSkipLast;
    bitmap.rgba.resize(static_cast<std::size_t>(bitmap.width) * bitmap.height * 4);
    const WebPData webpData{bytes, size};
    if (features.has_animation) {
        decodeFirstAnimationFrame(webpData, bitmap);
    } else if (!WebPDecodeRGBAInto(bytes, size, bitmap.rgba.data(), bitmap.rgba.size(),
                                   static_cast<int>(bitmap.rowBytes()))) {
        throwWebpError("damaged image data");
    }
    const QByteArray profile = iccProfile(webpData);
    bitmap.colorSpace = profile.isEmpty() ? sRGBColorSpace() : colorSpaceFromICC(profile);
    return bitmap;
}

}  // namespace

Bitmap decodeWebp(const QByteArray& data) {
    try {
        return decodeWebpData(data);
    } catch (const ImageIOError& error) {
        if (error.code() == ImageIOError::corruptFile && endsEarly(data))
            throwTruncated(QStringLiteral("The WebP image ends early."));
        throw;
    }
}

}  // namespace velt::imageio::detail
