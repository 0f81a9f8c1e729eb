// Planning: decoding a source under the size limits and deciding what it is written as.
#pragma once

#include "engine/core/image_plan.h"
#include "imageio/image_io.h"
#include "model/settings.h"

#include <QString>
#include <optional>

namespace velt {

// Frame 0 turned upright by `turn` (an EXIF orientation; none or 1: as decoded). Throws the
// decoder's ImageIOError (damaged, cut short, unsupported).
imageio::Bitmap createDisplayOrientedImage(const QString& path, std::optional<int> turn);

// Reads the headers, checks the raster size before any pixel is decoded, decodes the upright
// image and chooses the target format: the strategy's format, or for the automatic strategy the
// source's own when it can be written, else AVIF when the image writer can encode it, else PNG
// for an image with alpha and JPEG without. One reading of the source's metadata decides both the
// pixels' turn and what the output carries under the metadata policy (damaged metadata is dropped
// with a log line). Throws FileSystemError (corrupt, cut short or unsupported file, its reason
// saying which) or ImageSafetyError.
ImagePlan makePlan(const AppConfig& config, const QString& path);

}  // namespace velt
