// Processing one stable candidate: plan, encode, validate, compare, install, remember.
#pragma once

#include "engine/pipeline/engine_context.h"
#include "engine/pipeline/folder_compression_result.h"

#include <QString>

namespace velt {

// Runs on the engine's queue. Throws FolderCompressorControlError (cancelled, sourceChanged) or
// the error of the step that failed; the scan turns every other error into a failed file.
FolderCompressionResult process(EngineContext& context, const QString& file);

}  // namespace velt
