// Whether a candidate is left for a later scan: the engine's own fresh outputs, files it just
// touched, files already handled or settled in the registry, and files still changing.
#pragma once

#include "engine/core/engine_timing.h"
#include "engine/pipeline/engine_context.h"

#include <QString>

namespace velt {

// True when `file` must not be processed in this scan. Updates the engine's maps as it decides
// (a new or changed signature starts waiting to hold still; a file that held still long enough
// leaves it and is processed). `now` is the time the decision is made for.
bool shouldSkip(EngineContext& context, const EngineTiming& timing, const QString& file,
                EngineClock::time_point now = EngineClock::now());

// The registry may only settle a kept original while the output recorded for it still exists and
// is fresh; a file nothing was written for, and a replaced original, are settled by the record
// alone.
bool registryCanSkip(const EngineContext& context, const QString& file,
                     const ProcessedFileRecord& record);

}  // namespace velt
