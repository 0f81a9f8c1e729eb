// WebP through the external encoder "cwebp" (the built-in encoder never writes WebP): the planned
// image is rendered into a PPM, or a PAM when it has an alpha channel, "cwebp" runs with the
// arguments of the compression preset, and "webpmux" embeds the ICC profile when the plan has
// one and the tool is installed. Every result must decode; the smallest valid one is copied to
// the destination; every ".velt-temp" file made on the way is removed before the call returns.
//
// Runs on the engine's queue; a stop is observed while rendering and while a tool runs.
#pragma once

#include "engine/core/encoding_context.h"
#include "engine/core/image_plan.h"
#include "engine/encoders/encoder_support.h"
#include "model/settings.h"

#include <QString>
#include <vector>

namespace velt {

// "." + base + ".velt-temp-webp-source-" + UUID + ".pam" (with alpha) or ".ppm" in `directory`.
QString webPIntermediateURL(const QString& directory, const QString& base, bool hasAlpha);

// The one candidate, output "." + base + ".velt-temp-cwebp-" + label + "-" + UUID + ".webp" in
// `directory`, with the arguments: the preset's own ("-preset" "photo" for gentle), "-quiet" "-q"
// Q, the method arguments ("-m" "4" "-mt" "-sharp_yuv" for maximum, else "-m" "3" "-mt"), with
// alpha "-alpha_q" (`qualitySetting` clamped to 85...100) "-alpha_filter" "best", and then
// INPUT "-o" OUTPUT. Q is encoderQuality(webp, qualitySetting).
std::vector<EncoderCandidate> webPCandidates(const QString& baseName, const QString& directory,
                                             const QString& inputURL, bool hasAlpha,
                                             CompressionPreset preset, int qualitySetting);

// Encodes plan.image into `destination` with "cwebp" at context.config.qualities.webp and the
// preset context.config.preset. Throws FileSystemError(writeUnsupportedScheme) without "cwebp",
// ImageSafetyError for an image too large to render, FolderCompressorControlError::cancelled on
// a stop, FileSystemError(writeUnknown) when no candidate yields a decodable WebP, and the
// FileSystemError of a failed profile write, size read or copy. Without "webpmux" the WebP is
// written without the profile. Each result goes through `finish` (finishCandidate()). The
// raster's pixels are released once the intermediate is written (plan.image keeps its size):
// they are not held beside cwebp's own planes.
void writeWebPImage(EncodingContext& context, const QString& destination, ImagePlan& plan,
                    const ToolLocator& locateTool = systemToolLocator(),
                    const CandidateFinish& finish = {});

}  // namespace velt
