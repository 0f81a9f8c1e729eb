// The guards around every decode and encode: the raster size limit (model/image_safety.h, shared
// with the decoders), the profile rule, and the checks every encoded temporary file must pass
// before it may replace anything.
#pragma once

#include "imageio/bitmap.h"
#include "imageio/image_io.h"
#include "model/image_safety.h"

#include <QByteArray>
#include <QString>
#include <cstdint>
#include <optional>
#include <stdexcept>

namespace velt {

// The profile to embed for a colour space: none for non-RGB spaces and for any space whose name
// contains "srgb" (any case); otherwise its ICC bytes (none when empty).
std::optional<QByteArray> iccDataForEncoding(const std::optional<imageio::ColorSpace>& colorSpace);

// The file's size when it is at least one byte; an empty file is deleted and
// FileSystemError(writeUnknown) thrown.
std::int64_t validateTemporaryFile(const QString& path);

// As validateTemporaryFile, and the file must display as planned: frame 0 decodes, with
// `expected` dimensions when given, and its own Orientation (read by the reader that turned the
// source) says upright or nothing, so that no viewer turns it again. A file that does not is
// deleted and FileSystemError(writeUnknown) thrown. Every output passes this before it may replace
// or join an original.
std::int64_t validateEncodedImage(const QString& path,
                                  const std::optional<imageio::FrameSize>& expected = {});

// The dimensions every output of `image` must decode to.
imageio::FrameSize expectedOutputSize(const imageio::Bitmap& image);

}  // namespace velt
