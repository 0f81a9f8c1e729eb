// Sending one planned image to the encoding path of its target format.
#pragma once

#include "engine/core/image_plan.h"
#include "engine/pipeline/engine_context.h"
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

}  // namespace velt
