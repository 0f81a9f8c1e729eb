// The built-in encoders (libjpeg-turbo, libpng, libheif through the image layer), used when no
// tool writes the format and for the PNG path's lossless baseline.
#pragma once

#include "imageio/bitmap.h"
#include "imageio/metadata.h"
#include "model/image_format.h"
#include "model/settings.h"

#include <QString>

namespace velt {

// The built-in encoder at encoderQuality() of the format's number in `qualities` (PNG has none).
// JPEG has no alpha: a transparent image is flattened onto white first. HEIC and AVIF carry
// `metadata`. Throws FileSystemError (writeUnknown when encoding fails).
void writeImageWithImageIO(const QString& destination, const imageio::Bitmap& image,
                           ImageFormat format, const QualitySettings& qualities,
                           const imageio::ImageMetadata& metadata = {});

// As above, the raster handed over: flattened in place for JPEG, freed by HEIC and AVIF once the
// encoder holds its own copy of the pixels.
void writeImageWithImageIO(const QString& destination, imageio::Bitmap&& image, ImageFormat format,
                           const QualitySettings& qualities,
                           const imageio::ImageMetadata& metadata = {});

}  // namespace velt
