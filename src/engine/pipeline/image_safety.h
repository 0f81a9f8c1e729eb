// The guards around every decode and encode: the raster size limit, and the checks every
// encoded temporary file must pass before it may replace anything.
#pragma once

#include "imageio/bitmap.h"

#include <QByteArray>
#include <QString>
#include <cstdint>
#include <optional>
#include <stdexcept>

namespace velt {

// An image refused before any pixel is decoded.
class ImageSafetyError : public std::runtime_error {
  public:
    enum Kind { resourceLimitExceeded, invalidDimensions };
    static ImageSafetyError limitExceeded(std::int64_t width, std::int64_t height);
    static ImageSafetyError dimensionsInvalid();

    Kind kind() const { return kind_; }
    std::int64_t width() const { return width_; }
    std::int64_t height() const { return height_; }
    // "The image is too large to process safely (W×H)." / "The image has invalid dimensions."
    QString errorDescription() const;

  private:
    ImageSafetyError(Kind kind, std::int64_t width, std::int64_t height);
    Kind kind_;
    std::int64_t width_;
    std::int64_t height_;
};

// The byte count of a 4-byte-per-pixel raster of width × height. Throws invalidDimensions for a
// side below 1, resourceLimitExceeded on overflow or beyond maximumDecodedPixelCount or
// maximumDecodedRasterBytes (exactly 50,000,000 pixels pass).
std::int64_t validatedDecodedRasterByteCount(std::int64_t width, std::int64_t height);

// The profile to embed for a colour space: none for non-RGB spaces and for any space whose name
// contains "srgb" (any case); otherwise its ICC bytes (none when empty).
std::optional<QByteArray> iccDataForEncoding(const std::optional<imageio::ColorSpace>& colorSpace);

// The file's size when it is at least one byte; an empty file is deleted and
// FileSystemError(writeUnknown) thrown.
std::int64_t validateTemporaryFile(const QString& path);

// As validateTemporaryFile, and frame 0 must decode; a file that does not is deleted and
// FileSystemError(writeUnknown) thrown.
std::int64_t validateEncodedImage(const QString& path);

}  // namespace velt
