// The per-format encoders behind encodeImage. Each turns a checked bitmap (width, height ≥ 1,
// rgba of width × height × 4 bytes) into the bytes of a complete file, or throws ImageIOError;
// encodeImage writes those bytes to the destination.
#pragma once

#include "imageio/bitmap.h"
#include "imageio/metadata.h"
#include "model/image_format.h"

#include <QByteArray>
#include <string>
#include <utility>
#include <vector>

namespace velt::imageio::detail {

// Baseline JPEG at `quality` (clamped to 0-100), 4:2:0, optimised Huffman tables. Alpha is
// ignored (the caller flattens first when it cares); `icc` goes into APP2 markers when non-empty.
QByteArray encodeJPEG(const Bitmap& bitmap, int quality, const QByteArray& icc);

// Lossless PNG, 8-bit RGBA when the bitmap has an alpha channel, RGB otherwise; `icc` as iCCP.
QByteArray encodePNG(const Bitmap& bitmap, const QByteArray& icc);

// libheif encoder parameters beside the quality, as (name, value) text pairs, e.g. ("preset",
// "medium"); libheif parses the value by the parameter's type.
using HeifParameters = std::vector<std::pair<std::string, std::string>>;

// The measured speed settings the product encodes `format` (heic or avif) with.
HeifParameters defaultHeifParameters(ImageFormat format);

// HEIC (HEVC) or AVIF (AV1) at `quality` (libheif's own 0-100 scale), alpha kept when the bitmap
// has an alpha channel, `icc` as a "prof" colour profile, the EXIF and XMP of `metadata` as items
// of the image (IPTC has no place in HEIF and is left out), with `parameters` set on the encoder
// where its plug-in knows them. Throws unsupportedFormat when libheif has no encoder for it.
// The raster is taken over and freed as soon as libheif holds its own copy of the pixels, before
// the encoder allocates its frame buffers: the two are never held beside them at once.
QByteArray encodeHEIF(Bitmap&& bitmap, ImageFormat format, int quality, const QByteArray& icc,
                      const ImageMetadata& metadata, const HeifParameters& parameters);

// Whether libheif can encode `format` (heic or avif).
bool heifCanEncode(ImageFormat format);

}  // namespace velt::imageio::detail
