// JPEG through the external encoder "cjpeg": the planned image is rendered as a PPM straight into
// the tool's standard input (transparency flattened onto white; no raster file is ever written),
// its ICC profile goes to a side file, "cjpeg" runs once per candidate, every result must pass
// the caller's finish (the decode that proves it whole), and the smallest valid one is moved to
// the destination. The side file and the candidates live in the engine's private scratch folder
// and are removed before the call returns, whatever the outcome.
//
// Runs on the engine's queue; a stop is observed while "cjpeg" runs (it is ended and its input
// closed).
#pragma once

#include "engine/core/encoding_context.h"
#include "engine/core/image_plan.h"
#include "engine/encoders/encoder_support.h"

#include <QString>
#include <optional>
#include <vector>

namespace velt {

// What "cjpeg" is told to read: its standard input, which the path feeds.
inline const QString jpegStandardInput = QStringLiteral("/dev/stdin");

// The one candidate, labelled "default": [-icc profile] -quality Q -progressive -optimize
// -sample 2x2 -outfile OUTPUT INPUT, where Q is encoderQuality(jpeg, qualitySetting) and OUTPUT is
// "." + base + ".velt-temp-mozjpeg-default-" + UUID + ".jpg" in `directory`.
std::vector<EncoderCandidate> jpegCandidates(const QString& baseName, const QString& directory,
                                             const QString& inputURL,
                                             const std::optional<QString>& icc, int qualitySetting);

// Encodes plan.image into `destination` with "cjpeg" at context.config.qualities.jpeg, embedding
// plan.iccData when present; each result goes through `finish` (finishCandidate()). Once the last
// candidate has read the raster its pixels are released (plan.image keeps its size), so that the
// decode that proves the output reuses their memory. Throws
// FileSystemError(writeUnsupportedScheme) without "cjpeg", ImageSafetyError for an image too large
// to render, FolderCompressorControlError::cancelled on a stop, FileSystemError(writeUnknown) when
// no candidate yields a decodable JPEG, and the FileSystemError of a failed profile write, size
// read or move.
void writeJPEGImage(EncodingContext& context, const QString& destination, ImagePlan& plan,
                    const ToolLocator& locateTool = systemToolLocator(),
                    const CandidateFinish& finish = {});

}  // namespace velt
