// JPEG through the external encoder "cjpeg": the planned image is rendered once into a PPM
// intermediate (transparency flattened onto white), its ICC profile goes to a side file, "cjpeg"
// runs once per candidate, every result must decode, and the smallest valid one is copied to the
// destination. Every file made beside the destination carries ".velt-temp" in its name and is
// removed before the call returns, whatever the outcome.
//
// Runs on the engine's queue; a stop is observed while rendering and while "cjpeg" runs.
#pragma once

#include "engine/core/encoding_context.h"
#include "engine/core/image_plan.h"
#include "engine/encoders/encoder_support.h"

#include <QString>
#include <optional>
#include <vector>

namespace velt {

// "." + base + ".velt-temp-jpeg-source-" + UUID + ".ppm" in `directory`.
QString jpegIntermediateURL(const QString& directory, const QString& base);

// The one candidate, labelled "default": [-icc profile] -quality Q -progressive -optimize
// -sample 2x2 -outfile OUTPUT INPUT, where Q is encoderQuality(jpeg, qualitySetting) and OUTPUT is
// "." + base + ".velt-temp-mozjpeg-default-" + UUID + ".jpg" in `directory`.
std::vector<EncoderCandidate> jpegCandidates(const QString& baseName, const QString& directory,
                                             const QString& inputURL,
                                             const std::optional<QString>& icc, int qualitySetting);

// Encodes plan.image into `destination` with "cjpeg" at context.config.qualities.jpeg, embedding
// plan.iccData when present. Throws FileSystemError(writeUnsupportedScheme) without "cjpeg",
// ImageSafetyError for an image too large to render, FolderCompressorControlError::cancelled on
// a stop, FileSystemError(writeUnknown) when no candidate yields a decodable JPEG, and the
// FileSystemError of a failed profile write, size read or copy.
void writeJPEGImage(EncodingContext& context, const QString& destination, const ImagePlan& plan,
                    const ToolLocator& locateTool = systemToolLocator());

}  // namespace velt
