// Sending one planned image to the encoding path of its target format.
#pragma once

#include "engine/pipeline/image_plan.h"
#include "engine/watcher/engine_context.h"
#include "imageio/bitmap.h"
#include "model/settings.h"

#include <QString>

namespace velt {

// Encodes the plan into `destination` (a temporary file): WebP through "cwebp", PNG through the
// PNG path, JPEG through "cjpeg" when found, everything else with the built-in encoder; then the
// plan's metadata goes in. Throws
// FolderCompressorControlError::cancelled when a stop was requested before or right after.
void writeImage(EngineContext& context, const QString& sourceURL, const QString& destination,
                const ImagePlan& plan);

// The built-in encoder at encoderQuality() of the format's number in `qualities` (PNG has none).
// JPEG has no
// alpha: a transparent image is flattened onto white first. HEIC and AVIF carry `metadata`.
// Throws FileSystemError (writeUnknown when encoding fails).
void writeImageWithImageIO(const QString& destination, const imageio::Bitmap& image,
                           ImageFormat format, const QualitySettings& qualities,
                           const imageio::ImageMetadata& metadata = {});

}  // namespace velt
