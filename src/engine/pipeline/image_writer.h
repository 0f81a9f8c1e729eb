// Sending one planned image to the encoding path of its target format.
#pragma once

#include "engine/core/image_plan.h"
#include "engine/pipeline/engine_context.h"
#include "imageio/bitmap.h"
#include "model/settings.h"

#include <QString>

namespace velt {

// Encodes the plan into `destination` (a temporary file): WebP through "cwebp", PNG through the
// PNG path, JPEG through "cjpeg" when found, everything else with the built-in encoder. The
// plan's metadata goes in before the output is proven, by one decode, to be whole at the plan's
// size. Throws FolderCompressorControlError::cancelled when a stop was requested before or right
// after, and FileSystemError when no valid output could be made. The built-in encoder takes the
// plan's pixels over: afterwards plan.image keeps its size and format but no pixels.
void writeImage(EngineContext& context, const QString& sourceURL, const QString& destination,
                ImagePlan& plan);

}  // namespace velt
