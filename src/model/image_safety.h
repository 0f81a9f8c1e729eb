// The decode size limit: the one rule, shared by the decoders (before they allocate) and the
// engine (before it plans or renders an image), by which an image too large to handle safely is
// refused.
#pragma once

#include "model/reported_error.h"

#include <QString>
#include <cstdint>
#include <stdexcept>

namespace velt {

// An image refused before any pixel is decoded.
class ImageSafetyError : public std::runtime_error, public ReportedError {
  public:
    enum Kind { resourceLimitExceeded, invalidDimensions };
    static ImageSafetyError limitExceeded(std::int64_t width, std::int64_t height);
    static ImageSafetyError dimensionsInvalid();

    Kind kind() const { return kind_; }
    std::int64_t width() const { return width_; }
    std::int64_t height() const { return height_; }
    // "The image is too large to process safely (W×H)." / "The image has invalid dimensions."
    QString errorDescription() const;
    Message reason() const override;

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

}  // namespace velt
