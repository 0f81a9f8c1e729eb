// The image codec layer: what a file is, how large it is, its first frame as RGBA, and
// encoders for JPEG, PNG, HEIC and AVIF. Hostile input costs a header read: every decoder checks
// the declared size before allocating, and no C library error unwinds through C++ frames.
//
// All functions are reentrant (no shared state); call them from any thread.
#pragma once

#include "imageio/bitmap.h"
#include "imageio/metadata.h"
#include "model/image_format.h"
#include "model/reported_error.h"

#include <QString>
#include <QStringList>
#include <optional>
#include <stdexcept>

namespace velt::imageio {

// Decoding or encoding failed; the description is readable English (for the log), the reason
// what the user is told.
class ImageIOError : public std::runtime_error, public ReportedError {
  public:
    enum Code {
        corruptFile,        // the data cannot be decoded
        truncated,          // the data ends before the image does
        unsupportedFormat,  // not a format (or variant) this layer reads or writes
        writeFailed,
        tooLarge,  // beyond the decode limits
    };
    ImageIOError(Code code, const QString& description, std::optional<Message> reason = {})
        : std::runtime_error(description.toStdString()), code_(code), reason_(std::move(reason)) {}
    Code code() const { return code_; }
    Message reason() const override;

  private:
    Code code_;
    std::optional<Message> reason_;
};

// The format the first bytes announce (JPEG, PNG, WebP, HEIF brands heic/heix/hevc/heim/heis/
// mif1/msf1 → heic, AVIF brands avif/avis → avif); nothing when unknown.
std::optional<ImageFormat> sniffFormat(const QByteArray& firstBytes);

struct ImageProperties {
    ImageFormat format = ImageFormat::jpeg;
    QString typeIdentifier;  // of the format, e.g. "public.jpeg"
    std::int64_t width = 0;  // pixel size as decoded (before an EXIF orientation is applied)
    std::int64_t height = 0;
};

// Reads only the headers: the format (sniffed; the extension is the fallback) and the pixel
// size. Throws ImageIOError(corruptFile) when they cannot be read.
ImageProperties readProperties(const QString& path);

// Whether the file is an animation (an APNG announcing more than one frame, a WebP marked as
// animated, or a HEIF/AVIF image sequence), from its headers only; false for stills and unreadable
// files. Throws ImageIOError(corruptFile) when the file cannot be opened.
bool isAnimated(const QString& path);

// Decodes frame 0 to RGBA: grey replicated, CMYK and non-RGB spaces converted to sRGB, RGB left
// in its own profile's space. No orientation is applied. Throws ImageIOError (tooLarge when the
// declared size exceeds the decode limits, corruptFile for damaged data).
Bitmap decodeFirstFrame(const QString& path);

// The pixel size of a decoded frame.
struct FrameSize {
    std::int64_t width = 0;
    std::int64_t height = 0;
    bool operator==(const FrameSize&) const = default;
};

// Proves that frame 0 decodes, throwing as decodeFirstFrame would, and returns its size (as
// stored; HEIF after its own rotation). JPEG is decoded at 1/8 scale: every coded coefficient is
// still read, so damage anywhere is found at a fraction of the cost. HEIC and AVIF are decoded
// whole but not converted to RGBA, which would only take a raster's memory.
FrameSize verifyFirstFrameDecodes(const QString& path);

// The bitmap turned upright for an EXIF orientation (1-8, as PhotoMetadata::displayTurn says);
// 5-8 swap width and height. Values outside 2-8 return it unchanged.
Bitmap applyOrientation(const Bitmap& bitmap, int orientation);

// Encodes `bitmap` as `format` into a new file at `path` (replacing what is there):
// JPEG at `quality` (0-100; 4:2:0, optimised Huffman tables), PNG lossless (quality ignored),
// HEIC and AVIF at `quality`. Transparent pixels stay transparent where the format has alpha.
// A non-sRGB ICC profile of the bitmap is embedded. HEIC and AVIF carry `metadata` (JPEG and PNG
// get theirs afterwards from withMetadata, as every JPEG, PNG and WebP encoder's output does).
// WebP is not written here. Throws ImageIOError(writeFailed / unsupportedFormat).
void encodeImage(const Bitmap& bitmap, ImageFormat format, int quality, const QString& path,
                 const ImageMetadata& metadata = {});

// As above, the raster handed over: HEIC and AVIF free it as soon as libheif holds its own copy
// of the pixels, so that a photo's raster is not held beside the encoder's frame buffers.
void encodeImage(Bitmap&& bitmap, ImageFormat format, int quality, const QString& path,
                 const ImageMetadata& metadata = {});

// "public.jpeg", "public.png", plus "public.heic" / "public.avif" where libheif has an HEVC /
// AV1 encoder.
QStringList writableTypeIdentifiers();

}  // namespace velt::imageio
