// Internal pieces shared by the decoders and the header readers of the image codec layer:
// size guards, error helpers and the per-format entry points.
// Nothing here is part of the layer's public interface.
#pragma once

#include "imageio/image_io.h"

#include <QByteArray>
#include <QString>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace velt::imageio::detail {

[[noreturn]] void throwCorrupt(const QString& what);
// The data ends before the image does: a cut copy, or one still being written.
[[noreturn]] void throwTruncated(const QString& what);

// Throws ImageIOError(tooLarge) unless 1 ≤ width, height and the RGBA raster stays within the
// decode limits; throws corruptFile for a width or height below 1.
void checkDecodeSize(std::int64_t width, std::int64_t height);

// The whole file; corruptFile when it cannot be read or is empty.
QByteArray readWholeFile(const QString& path);

inline std::uint16_t readBE16(const std::uint8_t* p) {
    return static_cast<std::uint16_t>((p[0] << 8) | p[1]);
}
inline std::uint32_t readBE32(const std::uint8_t* p) {
    return (std::uint32_t{p[0]} << 24) | (std::uint32_t{p[1]} << 16) | (std::uint32_t{p[2]} << 8) |
           p[3];
}
inline std::uint16_t readLE16(const std::uint8_t* p) {
    return static_cast<std::uint16_t>(p[0] | (p[1] << 8));
}
inline std::uint32_t readLE32(const std::uint8_t* p) {
    return (std::uint32_t{p[3]} << 24) | (std::uint32_t{p[2]} << 16) | (std::uint32_t{p[1]} << 8) |
           p[0];
}

// Random-access reads of a file's headers without loading the rest of it.
class HeaderFile {
  public:
    // corruptFile when the file cannot be opened.
    explicit HeaderFile(const QString& path);
    HeaderFile(const HeaderFile&) = delete;
    HeaderFile& operator=(const HeaderFile&) = delete;
    ~HeaderFile();

    std::int64_t size() const { return size_; }
    // Exactly `count` bytes at `offset`, or nothing when the file ends earlier.
    std::optional<QByteArray> read(std::int64_t offset, std::int64_t count);

  private:
    struct Handle;
    std::unique_ptr<Handle> handle_;
    std::int64_t size_ = 0;
};

// Header readers: the pixel size from the file's headers only.
struct HeaderInfo {
    std::int64_t width = 0;
    std::int64_t height = 0;
};
HeaderInfo readJpegHeader(const QString& path);
// Exactly `count` bytes at `offset`, or nothing past the end.
using ByteReader =
    std::function<std::optional<QByteArray>(std::int64_t offset, std::int64_t count)>;
// The JPEG marker walk behind readJpegHeader; the decoder runs it too, because libjpeg skips
// over some damaged segments that we refuse. corruptFile on broken segment structure.
HeaderInfo parseJpegHeader(const ByteReader& read);
HeaderInfo readPngHeader(const QString& path);
HeaderInfo readWebpHeader(const QString& path);
HeaderInfo readHeifHeader(const QString& path);
// The primary image's EXIF item (its TIFF structure, after the item's offset field) and XMP
// item. Throws ImageIOError(corruptFile) for a file libheif cannot read, MetadataError for an
// item larger than maximumMetadataBlockBytes.
ImageMetadata readHeifMetadata(const QString& path);

// Frame-0 decoders over the whole file's bytes.
Bitmap decodeJpeg(const QByteArray& data);
FrameSize verifyJpegDecodes(const QByteArray& data);
Bitmap decodePng(const QByteArray& data);
Bitmap decodeWebp(const QByteArray& data);
Bitmap decodeHeif(const QByteArray& data);
// The primary image decoded whole (every tile, the alpha plane, rotation and mirroring) but kept
// in its coded colour format: no RGBA raster is made.
FrameSize verifyHeifDecodes(const QByteArray& data);

}  // namespace velt::imageio::detail
