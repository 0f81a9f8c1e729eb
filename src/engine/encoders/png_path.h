// PNG output: lossless, so size is won only by the optional external optimizers "oxipng"
// (lossless recompression) and "pngquant" (lossy palette quantization). A baseline PNG is made
// first (the source file itself when it is a PNG, else the built-in encoder's output), each
// installed tool adds a candidate derived from it, every candidate gets the plan's ICC profile
// written in, and the smallest candidate is copied to the destination. Every ".velt-temp" file
// made on the way is removed before the call returns.
//
// Runs on the engine's queue; a stop is observed while a tool runs.
#pragma once

#include "engine/core/encoding_context.h"
#include "engine/core/image_plan.h"
#include "engine/encoders/encoder_support.h"

#include <QString>
#include <QStringList>

namespace velt {

// "-q" "-o" "4" "--strip" "safe" PATH: optimizes the file in place.
QStringList oxipngArguments(const QString& path);

// "--force" "--skip-if-larger" "--quality" "MIN-MAX" "--speed" "3" "--output" OUTPUT INPUT, where
// MAX is encoderQuality(png, qualitySetting) and MIN is 0 for a MAX below 20, else MAX − 20.
QStringList pngquantArguments(int qualitySetting, const QString& input, const QString& output);

// Writes the plan as a PNG into `destination`: the baseline, then "oxipng" and "pngquant"
// candidates when found; ties keep the earlier of baseline, lossless, quantized. A failed
// optimizer only drops its candidate ("pngquant" failures are logged at debug level as
// "Optional PNG optimization failed: " + the error). Throws the baseline's copy or encode error,
// FolderCompressorControlError::cancelled on a stop, and size read and copy errors. The file that
// wins goes through `finish` (finishCandidate()) at the destination. The raster's pixels are
// released once the baseline is written (plan.image keeps its size): the optimizers work on files.
void writePNGImage(EncodingContext& context, const QString& sourceURL, const QString& destination,
                   ImagePlan& plan, const ToolLocator& locateTool = systemToolLocator(),
                   const CandidateFinish& finish = {});

}  // namespace velt
